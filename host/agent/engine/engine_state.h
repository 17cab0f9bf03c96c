// What the SNMP engine keeps on disk: the engine ID, made once and kept for ever, in <state>/engine/; users' keys and
// the count of starts in <state>/net-snmp/.
//
// The SNMP library writes its file line by line, in place, and does not tell when it cannot. So it writes a draft,
// below <state>/net-snmp.draft/: store() reads that back and puts it in place of the file when all is in it. A full
// disk leaves the file as it was. The file before it stays beside it (engine_file.h).
//
// Threads: agent thread only.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

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
    EngineState(std::string state, std::string name);

    // Where the library reads configuration beside the operator's: the engine ID.
    const std::string& idFolder() const { return m_idFolder; }

    // The library reads its state from here until useDraft() is called, then it writes below the draft folder only.
    void useFolder() const;
    void useDraft() const;

    // Writes the library's state. Gives what went wrong, or ""; a line tells of the first failure and of its end.
    [[nodiscard]] std::string store();

private:
    [[nodiscard]] std::string write() const;

    const std::string m_idFolder;
    const std::filesystem::path m_folder;
    const std::filesystem::path m_draftFolder;
    const std::string m_name;
    FileDescriptor m_lock;
    FaultLine m_writing;
};

}  // namespace vrx
