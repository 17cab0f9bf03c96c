#include "module/vrx_exception.h"

CVRX_Exception::CVRX_Exception(const std::string& message) : m_message("CVRX_Exception: " + message) {}

CVRX_Exception::~CVRX_Exception() = default;

const char* CVRX_Exception::what() const noexcept {
    return m_message.c_str();
}
