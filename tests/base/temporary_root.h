// A product root of a test's own, gone with the object.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "host/base/product_root.h"

namespace vrx {

class TemporaryRoot {
public:
    TemporaryRoot() {
        std::string name = (std::filesystem::temp_directory_path() / "vrx-services-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
        m_path = name;
        setProductRoot(m_path);
    }
    ~TemporaryRoot() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryRoot(const TemporaryRoot&) = delete;
    TemporaryRoot& operator=(const TemporaryRoot&) = delete;

    const std::string& path() const { return m_path; }
    std::string pathOf(const std::string& name) const { return m_path + "/" + name; }

    // Writes a file, with the folders that it needs, and returns its path.
    std::string write(const std::string& name, const std::string& content) const {
        const std::string path = pathOf(name);
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    std::string read(const std::string& name) const {
        std::ifstream file(pathOf(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

private:
    std::string m_path;
};

}  // namespace vrx
