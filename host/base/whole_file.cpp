#include "host/base/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "host/base/file_descriptor.h"

namespace vrx {

namespace {

std::string errorText() {
    return std::generic_category().message(errno);
}

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

// Whether the name is free. A link that leads nowhere is no free name.
bool isMissing(const std::string& path) {
    struct stat status {};
    return errno == ENOENT && ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

void writeAll(int descriptor, const std::string& content, const std::string& path) {
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t written = ::write(descriptor, content.data() + done, content.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail(path);
        done += static_cast<std::size_t>(written);
    }
}

std::string draftOf(const std::string& path) {
    return path + ".new";
}

FileDescriptor makeDraft(const std::string& draft, bool isPrivate) {
    if (::unlink(draft.c_str()) != 0 && errno != ENOENT) fail(draft);
    constexpr mode_t OWNERS_ALONE = S_IRUSR | S_IWUSR;
    constexpr mode_t AS_THE_PROCESS_GIVES = 0666;
    FileDescriptor out(::open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                              isPrivate ? OWNERS_ALONE : AS_THE_PROCESS_GIVES));
    if (!out) fail(draft);
    return out;
}

void fill(const FileDescriptor& out, const std::string& content, const std::string& draft) {
    writeAll(out.get(), content, draft);
    if (::fsync(out.get()) != 0) fail(draft);
}

void writeDraft(const WholeFile& file, bool isPrivate) {
    const std::string draft = draftOf(file.path);
    const FileDescriptor out = makeDraft(draft, isPrivate);
    struct stat before {};
    const bool replaces = ::stat(file.path.c_str(), &before) == 0;
    if (replaces) {
        constexpr mode_t PERMISSIONS = 0777;
        const bool foreign = before.st_uid != ::geteuid() || before.st_gid != ::getegid();
        if (foreign && ::fchown(out.get(), before.st_uid, before.st_gid) != 0) fail(draft);
        if (::fchmod(out.get(), before.st_mode & PERMISSIONS) != 0) fail(draft);
    }
    fill(out, file.content, draft);
}

}  // namespace

WholeFileError::WholeFileError(const std::string& path, const std::string& reason)
    : std::runtime_error(path + ": " + reason) {}

std::optional<std::string> readWholeFile(const std::string& path, std::size_t limit) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) {
        const std::string reason = errorText();
        if (isMissing(path)) return std::nullopt;
        throw WholeFileError(path, reason);
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) throw WholeFileError(path, errorText());
    if (!S_ISREG(status.st_mode)) throw WholeFileError(path, "not a regular file");
    const std::string tooLarge = "larger than " + std::to_string(limit) + " bytes";
    if (static_cast<std::size_t>(status.st_size) > limit) throw WholeFileError(path, tooLarge);
    std::string content(static_cast<std::size_t>(status.st_size) + 1, '\0');
    std::size_t size = 0;
    for (;;) {
        const ssize_t count = ::read(file.get(), &content[size], content.size() - size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw WholeFileError(path, errorText());
        if (count == 0) break;
        size += static_cast<std::size_t>(count);
        if (size > limit) throw WholeFileError(path, tooLarge);  // it grew meanwhile
        if (size == content.size()) content.resize(2 * size);
    }
    content.resize(size);
    return content;
}

void replaceWholeFile(const std::string& path, const std::string& content) {
    replaceWholeFiles({{path, content}}, true);
}

void replaceWholeFiles(const std::vector<WholeFile>& files, bool isPrivate) {
    try {
        for (const WholeFile& file : files) writeDraft(file, isPrivate);
        for (const WholeFile& file : files)
            if (std::rename(draftOf(file.path).c_str(), file.path.c_str()) != 0) fail(file.path);
    } catch (const std::system_error&) {
        for (const WholeFile& file : files) ::unlink(draftOf(file.path).c_str());
        throw;
    }
    for (const WholeFile& file : files) syncFolderOf(file.path);
}

std::string writePrivateDraft(const std::string& path, const std::string& content) {
    std::string draft = draftOf(path);
    try {
        fill(makeDraft(draft, true), content, draft);
    } catch (const std::system_error&) {
        ::unlink(draft.c_str());
        throw;
    }
    return draft;
}

void syncFolderOf(const std::string& path) {
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    const FileDescriptor folder(::open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || ::fsync(folder.get()) != 0) fail(path);
}

}  // namespace vrx
