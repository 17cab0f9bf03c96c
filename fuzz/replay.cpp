// Runs a fuzz target on the files named, and on the files of the folders named: its corpus in every test run, or a
// single input that the fuzzer found.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesOf(int count, char** names) {
    std::vector<fs::path> files;
    for (int i = 0; i < count; ++i) {
        if (!fs::is_directory(names[i])) {
            files.emplace_back(names[i]);
            continue;
        }
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(names[i]))
            if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

int run(int count, char** names) {
    const std::vector<fs::path> files = filesOf(count, names);
    for (const fs::path& path : files) {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            (void)fprintf(stderr, "%s: cannot be read\n", path.c_str());
            return EXIT_FAILURE;
        }
        // Of exactly its size: a byte too far is seen.
        std::vector<char> content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        content.shrink_to_fit();
        (void)fprintf(stderr, "%s\n", path.c_str());  // the last one is the one at fault
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    }
    (void)printf("%zu inputs\n", files.size());
    return files.empty() ? EXIT_FAILURE : EXIT_SUCCESS;  // an empty corpus proves nothing
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc - 1, argv + 1);
    } catch (const std::exception& fault) {
        (void)fprintf(stderr, "%s\n", fault.what());
        return EXIT_FAILURE;
    }
}
