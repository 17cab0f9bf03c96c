#include "tests/failing_memory.h"

#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t MAX_BLOCKS = 4096;
void* s_blocks[MAX_BLOCKS];
std::size_t s_blockCount = 0;
bool s_tracking = false;
thread_local unsigned int s_failAt = 0;
std::atomic<bool> s_failThreads{false};

const void* s_watched = nullptr;
std::size_t s_watchedSize = 0;
std::size_t s_watchedOffset = 0;
bool s_released = false;
bool s_wiped = false;

void* allocateOrNull(std::size_t size) noexcept {
    if (s_failAt != 0 && --s_failAt == 0) return nullptr;
    void* const block = std::malloc(size == 0 ? 1 : size);
    if (s_tracking && block != nullptr) {
        if (s_blockCount == MAX_BLOCKS) std::abort();
        s_blocks[s_blockCount++] = block;
    }
    return block;
}

void* allocate(std::size_t size) {
    if (void* const block = allocateOrNull(size)) return block;
    throw std::bad_alloc();
}

void release(void* block) noexcept {
    if (block == nullptr) return;
    if (block == s_watched) {
        const auto* const bytes = static_cast<const unsigned char*>(block) + s_watchedOffset;
        s_released = true;
        s_wiped = std::all_of(bytes, bytes + s_watchedSize, [](unsigned char byte) { return byte == 0; });
        s_watched = nullptr;
    }
    void** const end = s_blocks + s_blockCount;
    void** const found = std::find(s_blocks, end, block);
    if (found != end) {
        std::copy(found + 1, end, found);
        --s_blockCount;
    }
    std::free(block);
}

}  // namespace

namespace failing_memory {

void failAt(unsigned int n) {
    s_failAt = n;
}
bool isFailureToCome() {
    return s_failAt != 0;
}
void failThreads(bool fail) {
    s_failThreads = fail;
}
void startTracking() {
    s_blockCount = 0;
    s_tracking = true;
}
void stopTracking() {
    s_tracking = false;
}
std::size_t liveBlocks() {
    return s_blockCount;
}
void* liveBlock(std::size_t position) {
    return s_blocks[position];
}
void watch(const void* block, std::size_t size, std::size_t offset) {
    s_watched = block;
    s_watchedSize = size;
    s_watchedOffset = offset;
    s_released = s_wiped = false;
}
bool isReleased() {
    return s_released;
}
bool isWiped() {
    return s_wiped;
}

}  // namespace failing_memory

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                              void* argument) noexcept {
    static const auto real = reinterpret_cast<decltype(&pthread_create)>(::dlsym(RTLD_NEXT, "pthread_create"));
    return s_failThreads ? EAGAIN : real(thread, attributes, run, argument);
}

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete[](void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    release(block);
}
