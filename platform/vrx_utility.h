// Product root and small helpers of the host. All callable from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class VRX_Utility {
public:
    // The product's root directory, without a trailing "/".
    static std::string getVRXRootEnv();
};

// Appends the pieces of `text` between separators to `out`. Empty pieces are kept, before the first, between and after
// the last separator; an empty text gives nothing.
void SplitToStr(std::string text, char separator, std::vector<std::string>& out);

// Skips leading blanks and reads decimal digits: 0 where there are none (a sign is no digit), 4294967295 where the
// number is larger than that.
unsigned int StrToUint(std::string text);

std::string UintToStr(unsigned int number);

// Copies `count` bytes; refuses (non-zero, nothing copied) null pointers and a count larger than the destination.
int memcpy_s(void* destination, std::size_t destinationSize, const void* source, std::size_t count);
