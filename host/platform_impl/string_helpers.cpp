#include <cctype>
#include <cstring>
#include <limits>

#include "platform/vrx_utility.h"

void SplitToStr(std::string text, char separator, std::vector<std::string>& out) {
    if (text.empty()) return;
    std::size_t begin = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos; end = text.find(separator, begin)) {
        out.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    out.push_back(text.substr(begin));
}

unsigned int StrToUint(std::string text) {
    constexpr unsigned int LARGEST = std::numeric_limits<unsigned int>::max();
    std::size_t at = 0;
    while (at < text.size() && std::isblank(static_cast<unsigned char>(text[at])) != 0) ++at;
    unsigned long long number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        number = number * 10 + static_cast<unsigned long long>(text[at] - '0');
        if (number > LARGEST) return LARGEST;
    }
    return static_cast<unsigned int>(number);
}

std::string UintToStr(unsigned int number) {
    return std::to_string(number);
}

int memcpy_s(void* destination, std::size_t destinationSize, const void* source, std::size_t count) {
    if (destination == nullptr || source == nullptr || count > destinationSize) return -1;
    std::memcpy(destination, source, count);
    return 0;
}
