// The page's files as they stand in page/.
//
// Threads: constant.
#pragma once

#include <array>

namespace vrx {

struct PageFile {
    const char* path;  // asked for
    const char* type;
    const char* text;
};

extern const std::array<PageFile, 3> PAGE_FILES;

}  // namespace vrx
