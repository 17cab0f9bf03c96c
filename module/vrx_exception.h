// The one exception type of the module.
#pragma once

#include <exception>
#include <string>

// Faults that do not fit a status: an operation that a kind of handler cannot serve, a missing record, a cell of the
// wrong type, a failed load. what() is "CVRX_Exception: " followed by the message.
class CVRX_Exception : public std::exception {
public:
    explicit CVRX_Exception(const std::string& message);
    ~CVRX_Exception() override;
    const char* what() const noexcept override;

private:
    std::string m_message;
};
