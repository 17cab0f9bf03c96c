// Collects what the process logs through ACE, instead of stderr, for as long as the object lives.
#pragma once

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>

#include <string>
#include <vector>

class AceLogCapture : private ACE_Log_Msg_Backend {
public:
    AceLogCapture();
    ~AceLogCapture() override;
    AceLogCapture(const AceLogCapture&) = delete;
    AceLogCapture& operator=(const AceLogCapture&) = delete;

    // The records at error priority so far, whole, line end included.
    const std::vector<std::string>& errors() const { return m_errors; }

    // The same without what differs between runs: each must begin with date, "LM_ERROR" and thread, which are cut, and
    // our file's path and line number become "FILE" and "LINE". A line without that beginning is marked.
    std::vector<std::string> messages() const;

private:
    int open(const ACE_TCHAR*) override { return 0; }
    int reset() override { return 0; }
    int close() override { return 0; }
    ssize_t log(ACE_Log_Record& record) override;  // ACE calls it for one thread at a time

    std::vector<std::string> m_errors;
    ACE_Log_Msg_Backend* m_formerBackend;
    unsigned long m_formerFlags;
};
