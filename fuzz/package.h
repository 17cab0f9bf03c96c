#pragma once

#include <cstddef>
#include <cstdint>

// Decodes a package and checks what came out of it; whether it decoded. A finding aborts.
bool checkPackage(const unsigned char* data, std::size_t size);
