// mutate_packages COUNT [SEED]: damages valid packages COUNT times and decodes each, to be run under sanitizers. What
// decodes must encode to the bytes it came from (package.cpp); anything else aborts. The same numbers give the same
// packages: a find is repeated with them, and becomes a file of the corpus.
#include <ace/Log_Msg.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <random>
#include <vector>

#include "fuzz/package.h"
#include "vrxpub/vrx_little_endian.h"
#include "vrxpub/vrx_message_package.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Random = std::mt19937_64;

constexpr std::size_t DATA_LEN_OFFSET = TLVMsgHeadV3::SIZE - 4;

// Up to, not including, `limit`. The standard distributions differ between libraries.
std::size_t below(Random& random, std::size_t limit) {
    return static_cast<std::size_t>(random() % limit);
}

Bytes encoded(CR8KPackageV3& package) {
    unsigned char* out = nullptr;
    const unsigned int size = package.encode(out);
    const std::unique_ptr<unsigned char[]> owner(out);
    return Bytes(out, out + size);
}

// Few records and cells of all kinds and lengths, now and then one that nearly fills a record.
Bytes validPackage(Random& random) {
    CR8KPackageV3 package;
    const std::size_t records = below(random, 4);
    for (std::size_t r = 0; r < records; ++r) {
        auto record = std::make_unique<CTLVRecordV3>(random(), CTLVRecordV3::DEFAULT_BUCKETS);
        const bool large = below(random, 500) == 0;
        const std::size_t cells = large ? 1 : below(random, below(random, 20) == 0 ? 60 : 8);
        for (std::size_t c = 0; c < cells; ++c) {
            const Bytes value(large ? 65500 + below(random, 32) : below(random, 24),
                              static_cast<unsigned char>(random()));
            auto cell = std::make_unique<CTLVCell>();
            cell->set_i(static_cast<CTLVCell::ETLVType>(below(random, 10)),
                        static_cast<unsigned short>(below(random, 4096)), value.data(), value.size());
            record->append(cell.get());
            (void)cell.release();
        }
        package.append(std::move(record));
    }
    return encoded(package);
}

void damage(Bytes& bytes, Random& random) {
    static constexpr unsigned short EDGES[] = {0, 1, 3, 4, 9, 10, 11, 27, 28, 255, 65525, 65526, 65534, 65535};
    const std::size_t at = below(random, bytes.size());
    switch (below(random, 7)) {
        case 0:  // another byte
            bytes[at] = static_cast<unsigned char>(random());
            break;
        case 1:  // another bit
            bytes[at] = static_cast<unsigned char>(bytes[at] ^ 1U << below(random, 8));
            break;
        case 2:  // a length at a limit
            if (at + 2 <= bytes.size()) putLe16(&bytes[at], EDGES[below(random, std::size(EDGES))]);
            break;
        case 3:  // an end that is cut off
            bytes.resize(at);
            break;
        case 4:  // bytes taken out
            bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                        bytes.begin() + static_cast<std::ptrdiff_t>(at + below(random, bytes.size() - at)));
            break;
        case 5: {  // bytes that stand twice
            const Bytes part(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                             bytes.begin() + static_cast<std::ptrdiff_t>(at + below(random, bytes.size() - at)));
            bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(below(random, bytes.size())), part.begin(),
                         part.end());
            break;
        }
        default:  // a data length near the true one
            if (bytes.size() >= TLVMsgHeadV3::SIZE) {
                putLe32(&bytes[DATA_LEN_OFFSET],
                        static_cast<unsigned int>(bytes.size() - TLVMsgHeadV3::SIZE + below(random, 24) - 12));
            }
            break;
    }
    // Half of the time the header is mended, so that the damage reaches the records.
    if (bytes.size() >= TLVMsgHeadV3::SIZE && below(random, 2) == 0) {
        putLe32(&bytes[0], TLVMsgHeadV3::MAGIC);
        putLe32(&bytes[4], TLVMsgHeadV3::VERSION);
        putLe32(&bytes[DATA_LEN_OFFSET], static_cast<unsigned int>(bytes.size() - TLVMsgHeadV3::SIZE));
    }
}

int run(unsigned long long count, unsigned long long seed) {
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);  // nearly every package is refused, each with two lines
    unsigned long long decoded = 0;
    Random random(seed);
    Bytes valid;
    for (unsigned long long i = 0; i < count; ++i) {
        if (i % 16 == 0) valid = validPackage(random);
        Bytes bytes = valid;
        const std::size_t times = 1 + below(random, 3);
        for (std::size_t t = 0; t < times && !bytes.empty(); ++t) damage(bytes, random);

        if (checkPackage(bytes.data(), bytes.size())) ++decoded;
    }
    (void)printf("%llu mutated packages, seed %llu: %llu decoded, %llu refused\n", count, seed, decoded,
                 count - decoded);
    // Both outcomes in numbers, or the mutations no longer test anything.
    return decoded * 100 > count && decoded < count ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        (void)fprintf(stderr, "usage: mutate_packages COUNT [SEED]\n");
        return EXIT_FAILURE;
    }
    try {
        return run(strtoull(argv[1], nullptr, 10), argc == 3 ? strtoull(argv[2], nullptr, 10) : 1);
    } catch (const std::exception& e) {
        (void)fprintf(stderr, "%s\n", e.what());
        return EXIT_FAILURE;
    }
}
