// Files that are read whole and replaced whole, for whoever must not take one that cannot be read for an empty one.
#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vrx {

// what() is "PATH: reason".
class WholeFileError : public std::runtime_error {
public:
    WholeFileError(const std::string& path, const std::string& reason);
};

// The bytes of a regular file of `limit` bytes at most; nothing where there is none of that name. Throws WholeFileError
// for any other file, without waiting for a pipe's writer.
[[nodiscard]] std::optional<std::string> readWholeFile(const std::string& path, std::size_t limit);

// Puts `content` in the place of the file, by way of PATH.new; it is on disk when this returns. Owner and mode stay, a
// new file is its owner's alone. No link is followed out of the folder. Throws std::system_error with the path, and the
// file is as it was.
void replaceWholeFile(const std::string& path, const std::string& content);

struct WholeFile {
    std::string path;
    std::string content;
};

// The same for several files, whose new ones are their owner's alone only where `isPrivate`; else they get the mode
// that the process gives. All are written before the first takes its place.
void replaceWholeFiles(const std::vector<WholeFile>& files, bool isPrivate);

// The two halves of it, for who puts the file in its place otherwise. The first writes PATH.new, which is the process's
// own and nobody else may read, whoever had the file before, and gives its path; the other one brings to disk what was
// renamed in the file's folder. Throw std::system_error.
[[nodiscard]] std::string writePrivateDraft(const std::string& path, const std::string& content);
void syncFolderOf(const std::string& path);

}  // namespace vrx
