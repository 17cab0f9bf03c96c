// A library for LD_PRELOAD that makes calls of a program fail from outside: allocations, changes of files, look-ups of
// names, datagrams, new threads. What fails is said in a small file that the test and the program both map (faults.py
// has the other side).
//
// Allocations count where the caller is code of ours or of what we use in C++ (SQLite, too). Those that Net-SNMP, the C
// library, the dynamic linker and the libraries below Net-SNMP make for themselves never fail: Net-SNMP does not
// outlive all of its own.
//
// With VRX_FAULTS_TRACE each failing allocation writes where it is to standard error. With VRX_FAULTS_FORK the program
// waits before main() and becomes one fresh process per line on descriptor 198, "N M": allocation N of main() fails,
// and all after it where M is 1. Its process id, then its wait status, come back on descriptor 199.
#include <dlfcn.h>
#include <elf.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
// Of AddressSanitizer's runtime, in programs that have it.
[[gnu::weak]] void* __interceptor_malloc(std::size_t);
[[gnu::weak]] void* __interceptor_calloc(std::size_t, std::size_t);
[[gnu::weak]] void* __interceptor_realloc(void*, std::size_t);
}

namespace {

using Number = std::atomic<std::uint64_t>;

// One kind of call: the `failAt`-th from now on fails, once or with all after it. 0: none.
struct tFault {
    Number failAt;
    Number forever;
    Number count;   // calls while failAt is set
    Number failed;  // of these
};

// The mapped file.
struct tControl {
    tFault allocations;
    tFault files;
    Number fileError;      // errno of a failing change of a file
    Number lookupDelayMs;  // how long a look-up of a name hangs before it fails; 0: look-ups are left alone
    Number lookups;        // that hung
    Number deadPort;       // datagrams to it are not sent; 0: all are
    Number sendError;      // errno of these
    Number noThreads;      // 1: none can be made
    char folder[256];      // files below it can fail
};

constexpr int COMMANDS = 198;
constexpr int REPORTS = 199;

constexpr const char* FULL_DISK = "/dev/full";

tControl* s_control = nullptr;
unsigned long s_failInMain = 0;  // the allocation that fails, counted from main() on
bool s_trace = false;            // failing allocations show where they are

// Code whose own allocations do not fail.
struct tRange {
    std::uintptr_t begin;
    std::uintptr_t end;
};
constexpr std::size_t MOST_RANGES = 256;
tRange s_spared[MOST_RANGES];
std::size_t s_sparedCount = 0;

constexpr const char* COUNTED_LIBRARIES[] = {"libvrx_",    "libsnmp_tamrel", "libstdc++", "libACE",
                                             "libtinyxml", "libsqlite3",     "libspdlog", "libfmt"};

bool isCounted(const char* path) {
    if (path[0] == '\0') return true;  // the program itself
    if (std::strstr(path, "vrx_fault_shim") != nullptr) return false;
    for (const char* name : COUNTED_LIBRARIES) {
        if (std::strstr(path, name) != nullptr) return true;
    }
    return false;
}

int noteRange(dl_phdr_info* info, std::size_t, void*) {
    if (isCounted(info->dlpi_name)) return 0;
    for (int i = 0; i < info->dlpi_phnum && s_sparedCount < MOST_RANGES; ++i) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
        const std::uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
        s_spared[s_sparedCount++] = {begin, begin + segment.p_memsz};
    }
    return 0;
}

bool isSpared(const void* caller) {
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    for (std::size_t i = 0; i < s_sparedCount; ++i) {
        if (address >= s_spared[i].begin && address < s_spared[i].end) return true;
    }
    return false;
}

bool fails(tFault& fault) {
    const std::uint64_t failAt = fault.failAt.load(std::memory_order_relaxed);
    if (failAt == 0) return false;
    const std::uint64_t number = ++fault.count;
    const bool failing = number == failAt || (number > failAt && fault.forever != 0);
    if (failing) ++fault.failed;
    return failing;
}

bool allocationFails(const void* caller) {
    if (s_control == nullptr || s_control->allocations.failAt.load(std::memory_order_relaxed) == 0) return false;
    if (isSpared(caller) || !fails(s_control->allocations)) return false;
    if (s_trace) {
        void* frames[32];
        ::backtrace_symbols_fd(frames, ::backtrace(frames, 32), STDERR_FILENO);
    }
    return true;
}

void* allocate(std::size_t size) {
    return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

bool isBelowFolder(const char* path) {
    const std::size_t length = std::strlen(s_control->folder);
    return length > 0 && std::strncmp(path, s_control->folder, length) == 0;
}

bool fileFails(int descriptor) {
    if (s_control == nullptr || s_control->files.failAt.load(std::memory_order_relaxed) == 0) return false;
    char link[64];
    char path[512];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t length = ::readlink(link, path, sizeof path - 1);
    if (length < 0) return false;
    path[length] = '\0';
    if (!isBelowFolder(path) || !fails(s_control->files)) return false;
    errno = static_cast<int>(s_control->fileError.load());
    return true;
}

bool pathFails(const char* path) {
    if (s_control == nullptr || s_control->files.failAt.load(std::memory_order_relaxed) == 0) return false;
    if (!isBelowFolder(path) || !fails(s_control->files)) return false;
    errno = static_cast<int>(s_control->fileError.load());
    return true;
}

bool sendingFails(const void* to) {
    if (s_control == nullptr || to == nullptr) return false;
    const std::uint64_t port = s_control->deadPort.load(std::memory_order_relaxed);
    if (port == 0) return false;
    in_port_t asked = 0;
    const auto* const address = static_cast<const sockaddr*>(to);
    if (address->sa_family == AF_INET) asked = static_cast<const sockaddr_in*>(to)->sin_port;
    if (address->sa_family == AF_INET6) asked = static_cast<const sockaddr_in6*>(to)->sin6_port;
    if (asked != htons(static_cast<std::uint16_t>(port))) return false;
    errno = static_cast<int>(s_control->sendError.load());
    return true;
}

template <typename Function>
Function next(Function, const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

bool isNumeric(const char* text) {
    return std::strchr(text, ':') != nullptr || text[std::strspn(text, "0123456789.")] == '\0';
}

int (*s_main)(int, char**, char**) = nullptr;

int armedMain(int count, char** arguments, char** environment) {
    if (s_failInMain != 0) s_control->allocations.failAt = s_failInMain;
    const int code = s_main(count, arguments, environment);
    if (s_failInMain != 0) s_control->allocations.failAt = 0;  // after it is the end of ACE, which needs memory
    return code;
}

void serveForks() {
    char line[64];
    std::size_t used = 0;
    while (used < sizeof line - 1) {
        const ssize_t got = ::read(COMMANDS, line + used, 1);
        if (got <= 0) ::_exit(0);
        if (line[used] != '\n') {
            ++used;
            continue;
        }
        line[used] = '\0';
        used = 0;
        unsigned long failAt = 0;
        unsigned long forever = 0;
        std::sscanf(line, "%lu %lu", &failAt, &forever);
        const pid_t child = ::fork();
        if (child == 0) {
            ::close(COMMANDS);
            ::close(REPORTS);
            s_control->allocations.failAt = 0;  // what the one before was to have
            s_control->allocations.count = 0;
            s_control->allocations.failed = 0;
            s_control->allocations.forever = forever;
            s_failInMain = failAt;
            return;
        }
        ::dprintf(REPORTS, "%d\n", static_cast<int>(child));
        int status = 0;
        ::waitpid(child, &status, 0);
        ::dprintf(REPORTS, "%d\n", status);
    }
}

[[gnu::constructor]] void prepare() {
    const char* const path = std::getenv("VRX_FAULTS");
    if (path == nullptr) return;
    // A sanitizer starts it to name the places of its report, by which known leaks are let pass.
    if (std::strncmp(program_invocation_short_name, "llvm-symbolizer", 15) == 0) return;
    const int file = ::open(path, O_RDWR | O_CLOEXEC);
    if (file < 0) return;
    void* const mapped = ::mmap(nullptr, sizeof(tControl), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (mapped == MAP_FAILED) return;
    ::dl_iterate_phdr(noteRange, nullptr);
    s_trace = std::getenv("VRX_FAULTS_TRACE") != nullptr;
    if (s_trace) {  // its first use allocates
        void* frame = nullptr;
        ::backtrace(&frame, 1);
    }
    s_control = static_cast<tControl*>(mapped);
    if (std::getenv("VRX_FAULTS_FORK") != nullptr) serveForks();
}

}  // namespace

extern "C" {

// The program's own main() comes a little later: what is made before it, no program could answer for.
int __libc_start_main(int (*main)(int, char**, char**), int count, char** arguments, void (*init)(), void (*fini)(),
                      void (*dynamicFini)(), void* stackEnd) {
    static const auto real = next(&__libc_start_main, "__libc_start_main");
    s_main = main;
    return real(&armedMain, count, arguments, init, fini, dynamicFini, stackEnd);
}

void* malloc(std::size_t size) {
    if (allocationFails(__builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return allocate(size);
}

void* calloc(std::size_t count, std::size_t size) {
    if (allocationFails(__builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return __interceptor_calloc != nullptr ? __interceptor_calloc(count, size) : __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    if (allocationFails(__builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return __interceptor_realloc != nullptr ? __interceptor_realloc(block, size) : __libc_realloc(block, size);
}

ssize_t write(int descriptor, const void* data, std::size_t size) {
    static const auto real = next(&write, "write");
    return fileFails(descriptor) ? -1 : real(descriptor, data, size);
}

ssize_t writev(int descriptor, const iovec* pieces, int count) {
    static const auto real = next(&writev, "writev");
    return fileFails(descriptor) ? -1 : real(descriptor, pieces, count);
}

ssize_t pwrite(int descriptor, const void* data, std::size_t size, off_t offset) {
    static const auto real = next(&pwrite, "pwrite");
    return fileFails(descriptor) ? -1 : real(descriptor, data, size, offset);
}

ssize_t pwrite64(int descriptor, const void* data, std::size_t size, off64_t offset) {
    static const auto real = next(&pwrite64, "pwrite64");
    return fileFails(descriptor) ? -1 : real(descriptor, data, size, offset);
}

int fsync(int descriptor) {
    static const auto real = next(&fsync, "fsync");
    return fileFails(descriptor) ? -1 : real(descriptor);
}

int fdatasync(int descriptor) {
    static const auto real = next(&fdatasync, "fdatasync");
    return fileFails(descriptor) ? -1 : real(descriptor);
}

int ftruncate(int descriptor, off_t size) noexcept {
    static const auto real = next(&ftruncate, "ftruncate");
    return fileFails(descriptor) ? -1 : real(descriptor, size);
}

int ftruncate64(int descriptor, off64_t size) noexcept {
    static const auto real = next(&ftruncate64, "ftruncate64");
    return fileFails(descriptor) ? -1 : real(descriptor, size);
}

int rename(const char* from, const char* to) noexcept {
    static const auto real = next(&rename, "rename");
    return pathFails(to) ? -1 : real(from, to);
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned int flags) noexcept {
    static const auto real = next(&renameat2, "renameat2");
    return pathFails(to) ? -1 : real(fromFolder, from, toFolder, to, flags);
}

// What is written through the C library's streams goes past write() above: a stream that fails writes to a full disk.
FILE* fopen(const char* path, const char* mode) {
    static const auto real = next(&fopen, "fopen");
    return real(mode[0] != 'r' && pathFails(path) ? FULL_DISK : path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    static const auto real = next(&fopen64, "fopen64");
    return real(mode[0] != 'r' && pathFails(path) ? FULL_DISK : path, mode);
}

ssize_t sendto(int socket, const void* data, std::size_t size, int flags, const sockaddr* to, socklen_t length) {
    static const auto real = next(&sendto, "sendto");
    return sendingFails(to) ? -1 : real(socket, data, size, flags, to, length);
}

ssize_t sendmsg(int socket, const msghdr* message, int flags) {
    static const auto real = next(&sendmsg, "sendmsg");
    return sendingFails(message->msg_name) ? -1 : real(socket, message, flags);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) noexcept {
    static const auto real = next(&pthread_create, "pthread_create");
    if (s_control != nullptr && s_control->noThreads != 0) return EAGAIN;
    return real(thread, attributes, run, argument);
}

int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** found) {
    static const auto real = next(&getaddrinfo, "getaddrinfo");
    if (s_control == nullptr || s_control->lookupDelayMs == 0 || name == nullptr || isNumeric(name)) {
        return real(name, service, hints, found);
    }
    ++s_control->lookups;
    for (std::uint64_t waited = 0; waited < s_control->lookupDelayMs; waited += 10) ::usleep(10'000);
    return EAI_AGAIN;
}

}  // extern "C"

// Replaced so that the caller is known; the other forms of the standard library come here.
void* operator new(std::size_t size) {
    void* const block = allocationFails(__builtin_return_address(0)) ? nullptr : allocate(size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void* operator new[](std::size_t size) {
    void* const block = allocationFails(__builtin_return_address(0)) ? nullptr : allocate(size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocationFails(__builtin_return_address(0)) ? nullptr : allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocationFails(__builtin_return_address(0)) ? nullptr : allocate(size);
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    std::free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    std::free(block);
}
