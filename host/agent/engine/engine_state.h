// What the SNMP engine keeps on disk: the engine ID, made once and kept for ever, in <state>/engine/; users' keys and
// the count of starts in <state>/net-snmp/.
//
// The SNMP library would write its file in place, sync it line by line, and not tell when it cannot. This program's
// read_config_store() takes the place of the library's, as the dynamic linker resolves names, and collects the lines:
// they replace the file as a whole. A full disk leaves it as it was. The file before it stays beside it
// (engine_file.h).
//
// Threads: agent thread only; a thread of its own writes what storeMeanwhile() has collected.
#pragma once

#include <filesystem>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

#include "host/base/fault_line.h"
#include "host/engine_files/engine_file.h"

namespace vrx {

// The engine cannot start; what() says what to mend.
class EngineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class EngineState {
public:
    // `state` is an absolute path of a folder. Makes the folders of the engine and, at the first start, its ID; `name`
    // is the one under which the library's files go. Nobody else may use the state while the object lives. Throws
    // EngineError, and WholeFileError for a file that is there and is of no use: it stays as it is.
    EngineState(const std::string& state, const std::string& name);
    ~EngineState();  // waits for what is being written
    EngineState(const EngineState&) = delete;
    EngineState& operator=(const EngineState&) = delete;

    // Where the library reads configuration beside the operator's: the engine ID.
    const std::string& idFolder() const { return m_idFolder; }

    // The library reads its state from here until useScratch() is called, then it keeps away from it.
    void useFolder() const;
    void useScratch() const;

    // Writes the library's state. Gives what went wrong, or ""; a line tells of the first failure and of its end.
    [[nodiscard]] std::string store();

    // Begins to write the state as it is now; stored() waits for the end and gives what store() does.
    void storeMeanwhile();
    [[nodiscard]] std::string stored();

private:
    [[nodiscard]] std::string report(const std::string& reason);

    const std::string m_idFolder;
    const std::filesystem::path m_folder;
    const std::filesystem::path m_scratchFolder;  // for what else the library writes
    const std::string m_file;
    FileDescriptor m_lock;
    FaultLine m_writing;
    std::future<std::string> m_written;  // by the thread: what went wrong, or ""
    std::thread m_writer;
};

}  // namespace vrx
