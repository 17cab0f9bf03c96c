// The input is a package as received: what decodes encodes to the bytes it came from, and can be read in every way.
#include "fuzz/package.h"

#include <ace/Log_Msg.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <vector>

#include "fuzz/finding.h"
#include "vrxpub/vrx_message_package.h"

namespace {

// Every way in which the rest of the system reads a package.
void readAll(const CR8KPackageV3& package) {
    for (const CTLVRecordV3* record : package.records()) {
        for (auto p = record->begin(); p != record->end(); p = p->next_) {
            const CTLVCell& cell = CTLVRecordV3::cellAt(p);
            const CTLVCell& found = (*record)[cell.tag()];
            require(found.tag() == cell.tag(), "a record gives a cell of another tag");
            (void)CTLVCell::ValueCast<unsigned int>()(&found);
            (void)CTLVCell::ValueCast<unsigned long long>()(&found);
            (void)found.toString();
        }
    }
    std::ostringstream text;
    package.dump(text);
}

// Both ways of encoding give the bytes that the package came from.
void encodeAgain(CR8KPackageV3& package, const unsigned char* bytes, unsigned int size) {
    unsigned char* allocated = nullptr;
    const unsigned int written = package.encode(allocated);
    const std::unique_ptr<unsigned char[]> owner(allocated);
    require(written == size && std::equal(allocated, allocated + size, bytes), "a package encodes to other bytes");

    std::vector<unsigned char> buffer(size);
    require(package.encode(buffer.data(), size) == size, "a buffer of the right size is refused");
    require(std::equal(buffer.begin(), buffer.end(), bytes), "a buffer gets other bytes");
    require(package.encode(buffer.data(), size - 1) == CR8KPackageV3::FAILURE, "a short buffer is accepted");
}

}  // namespace

bool checkPackage(const unsigned char* data, std::size_t size) {
    // A block of its own, of exactly this size and at an odd address: a byte too far is seen.
    const std::unique_ptr<unsigned char[]> block(new unsigned char[size + 1]);
    unsigned char* const bytes = block.get() + 1;
    std::copy(data, data + size, bytes);

    CR8KPackageV3 package;
    const unsigned int result = package.decode(bytes, static_cast<unsigned int>(size));
    if (result == CR8KPackageV3::FAILURE) {
        require(package.records().empty(), "a refused package leaves records");
        return false;
    }
    require(result + TLVMsgHeadV3::SIZE <= size, "a package decodes to more than there is");
    require(package.head().uiDataLen == result, "the header's length is not that of the records");
    readAll(package);
    encodeAgain(package, bytes, result + TLVMsgHeadV3::SIZE);
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Nearly every package is refused, each with two lines.
    static const bool quiet = (ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS), true);
    (void)quiet;
    checkPackage(data, size);
    return 0;
}
