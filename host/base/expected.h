// What a function made, or why it made nothing: for failures that its caller goes on after. std::expected of C++23, as
// far as needed here.
#pragma once

#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace vrx {

struct Unexpected {
    std::string reason;
};

template <typename T>
class [[nodiscard]] Expected {
public:
    template <typename Value, typename = std::enable_if_t<std::is_convertible_v<Value, T>>>
    Expected(Value&& value) : m_value(std::forward<Value>(value)) {}
    Expected(Unexpected failure) : m_failure(std::move(failure.reason)) {}

    explicit operator bool() const { return m_value.has_value(); }
    // REQUIRES: there is a value.
    T& operator*() & { return *m_value; }
    const T& operator*() const& { return *m_value; }
    T&& operator*() && { return *std::move(m_value); }
    T* operator->() { return &*m_value; }
    // Why there is none; "" where there is one.
    const std::string& failure() const { return m_failure; }

private:
    std::optional<T> m_value;
    std::string m_failure;
};

}  // namespace vrx
