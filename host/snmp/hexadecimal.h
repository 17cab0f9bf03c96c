// Octets as people write engine IDs and what is no text.
//
// Threads: any.
#pragma once

#include <string>

namespace vrx {

// "80001f8804": without "0x", "" of nothing.
std::string hexadecimal(const std::string& octets);

}  // namespace vrx
