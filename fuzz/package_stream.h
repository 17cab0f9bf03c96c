// A stream of packages, cut as plainly as can be: what a connection that reads it must come to.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "vrxpub/vrx_little_endian.h"
#include "vrxpub/vrx_message_package.h"

// Largest package of the targets that read streams, in bytes: the least that a configuration may name.
constexpr std::size_t PACKAGE_LIMIT = std::size_t{128} * 1024;

struct PackageStream {
    enum class End { Closed, InsidePackage, Garbage, TooLarge };

    std::vector<std::string> packages;  // whole and well-formed
    End end = End::Closed;              // what stands after them
};

inline bool decodeInto(CR8KPackageV3& package, const std::string& bytes) {
    std::string copy = bytes;
    return package.decode(reinterpret_cast<unsigned char*>(copy.data()), static_cast<unsigned int>(copy.size())) !=
           CR8KPackageV3::FAILURE;
}

inline PackageStream cutStream(const std::string& bytes) {
    PackageStream stream;
    std::size_t at = 0;
    while (at < bytes.size()) {
        stream.end = PackageStream::End::InsidePackage;
        if (bytes.size() - at < TLVMsgHeadV3::SIZE) return stream;
        const auto* head = reinterpret_cast<const unsigned char*>(bytes.data() + at);
        stream.end = PackageStream::End::Garbage;
        if (getLe32(head) != TLVMsgHeadV3::MAGIC || getLe32(head + 4) != TLVMsgHeadV3::VERSION) return stream;
        const std::size_t size = TLVMsgHeadV3::SIZE + std::size_t{getLe32(head + 24)};
        stream.end = PackageStream::End::TooLarge;
        if (size > PACKAGE_LIMIT) return stream;
        stream.end = PackageStream::End::InsidePackage;
        if (bytes.size() - at < size) return stream;
        stream.end = PackageStream::End::Garbage;
        CR8KPackageV3 package;
        const std::string one = bytes.substr(at, size);
        if (!decodeInto(package, one)) return stream;
        stream.packages.push_back(one);
        stream.end = PackageStream::End::Closed;
        at += size;
    }
    return stream;
}
