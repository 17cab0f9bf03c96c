#include "ace_log_capture.h"

#include <ace/Log_Record.h>

#include <regex>

AceLogCapture::AceLogCapture() : m_formerBackend(ACE_Log_Msg::msg_backend(this)), m_formerFlags(ACE_LOG_MSG->flags()) {
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
}

AceLogCapture::~AceLogCapture() {
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::CUSTOM);
    ACE_LOG_MSG->set_flags(m_formerFlags);
    ACE_Log_Msg::msg_backend(m_formerBackend);
}

ssize_t AceLogCapture::log(ACE_Log_Record& record) {
    if (record.type() == LM_ERROR) m_errors.emplace_back(record.msg_data());
    return 0;
}

std::vector<std::string> AceLogCapture::messages() const {
    static const std::regex prefix(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} LM_ERROR \(\d+\) )");
    static const std::regex place(R"(^at File=[^,]*vrxpub/vrx_message_package\.cpp,Line=[1-9]\d*)");
    std::vector<std::string> result;
    for (const std::string& line : m_errors) {
        std::smatch match;
        if (!std::regex_search(line, match, prefix)) {
            result.push_back("no prefix: " + line);
            continue;
        }
        result.push_back(std::regex_replace(match.suffix().str(), place, "at File=FILE,Line=LINE"));
    }
    return result;
}
