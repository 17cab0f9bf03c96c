// Writes to disk what others leave to it, soon after it came: at most every 100 ms, so that what comes meanwhile shares
// a transaction. One thread does it for all writers of the process: they use the same disk.
//
//     BackgroundWriter writer([this] { return wroteAll(); });
//     queue.push_back(entry);
//     writer.wake();
//
// `write` is called by the thread, one call at a time. What it throws for lack of memory, and false, the sign of a disk
// that does not take it, mean that it is called again; with false the other writers have their turn before.
//
// Threads: wake() from any, also under a lock that `write` takes; the rest from its owner's.
#pragma once

#include <functional>
#include <memory>

namespace vrx {

class BackgroundWriter {
public:
    // Throws std::system_error when no thread can be started.
    explicit BackgroundWriter(std::function<bool()> write);
    ~BackgroundWriter();  // as stop()
    BackgroundWriter(const BackgroundWriter&) = delete;
    BackgroundWriter& operator=(const BackgroundWriter&) = delete;

    // There is something to write.
    void wake();

    // Returns when nothing is being written, and nothing will be; what is left is its owner's business.
    void stop();

private:
    class Thread;
    struct Work;

    const std::shared_ptr<Thread> m_thread;  // the last writer ends it
    const std::shared_ptr<Work> m_work;
};

}  // namespace vrx
