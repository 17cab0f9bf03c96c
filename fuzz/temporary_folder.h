// A folder that goes with its object, for sockets and for files that must have a certain name.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include "fuzz/finding.h"

class TemporaryFolder {
public:
    TemporaryFolder() : m_path((std::filesystem::temp_directory_path() / "fuzz-XXXXXX").string()) {
        require(mkdtemp(m_path.data()) != nullptr, "no temporary folder");
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};
