// A file that exists in memory only, for code that takes a path.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <string>

#include "fuzz/finding.h"

class MemoryFile {
public:
    static constexpr const char* FOLDER = "/proc/self/fd";

    MemoryFile() : m_descriptor(memfd_create("fuzz", MFD_CLOEXEC)) {
        require(m_descriptor >= 0, "memfd_create failed");
    }
    ~MemoryFile() { close(m_descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string name() const { return std::to_string(m_descriptor); }
    std::string path() const { return FOLDER + ("/" + name()); }

    void write(const void* data, std::size_t size) {
        require(ftruncate(m_descriptor, 0) == 0, "ftruncate failed");
        require(pwrite(m_descriptor, data, size, 0) == static_cast<ssize_t>(size), "pwrite failed");
    }
    void write(const std::string& text) { write(text.data(), text.size()); }

private:
    int m_descriptor;
};
