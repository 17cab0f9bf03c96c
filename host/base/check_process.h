// A program that is run to its end beside this one: what it wrote, and its exit code.
//
// Threads: made and destroyed by one; `done` is called once, from a thread of the object's own, unless the object goes
// before.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "host/base/file_descriptor.h"

namespace vrx {

class CheckProcess {
public:
    struct Outcome {
        int exitCode = -1;   // -1: it did not end by itself
        std::string output;  // of stdout and stderr, the first mebibyte
    };
    using Done = std::function<void(Outcome outcome)>;

    // `command` is a path and arguments. A program that is not done within `patience` is killed. Throws
    // std::system_error when it cannot be started.
    CheckProcess(const std::vector<std::string>& command, std::chrono::milliseconds patience, Done done);
    ~CheckProcess();  // kills it
    CheckProcess(const CheckProcess&) = delete;
    CheckProcess& operator=(const CheckProcess&) = delete;

private:
    void run();

    const std::chrono::steady_clock::time_point m_end;
    const Done m_done;
    WakeFlag m_stop;
    pid_t m_child = -1;
    FileDescriptor m_output;
    FileDescriptor m_ended;  // readable when the child is at its end
    std::thread m_thread;
};

}  // namespace vrx
