// Little-endian numbers in byte buffers, at any alignment. The caller has checked that the bytes are there.
// GCC and clang turn each of these into one load or store on little-endian machines.
#pragma once

#include <cstdint>

inline std::uint16_t getLe16(const unsigned char* p) {
    return static_cast<std::uint16_t>(p[0] | p[1] << 8);
}

inline std::uint32_t getLe32(const unsigned char* p) {
    return std::uint32_t{p[0]} | std::uint32_t{p[1]} << 8 | std::uint32_t{p[2]} << 16 | std::uint32_t{p[3]} << 24;
}

inline std::uint64_t getLe64(const unsigned char* p) {
    return getLe32(p) | std::uint64_t{getLe32(p + 4)} << 32;
}

// Each writer returns the position after what it wrote.
inline unsigned char* putLe16(unsigned char* p, std::uint16_t value) {
    p[0] = static_cast<unsigned char>(value);
    p[1] = static_cast<unsigned char>(value >> 8);
    return p + 2;
}

inline unsigned char* putLe32(unsigned char* p, std::uint32_t value) {
    return putLe16(putLe16(p, static_cast<std::uint16_t>(value)), static_cast<std::uint16_t>(value >> 16));
}

inline unsigned char* putLe64(unsigned char* p, std::uint64_t value) {
    return putLe32(putLe32(p, static_cast<std::uint32_t>(value)), static_cast<std::uint32_t>(value >> 32));
}
