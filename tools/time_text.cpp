#include "tools/time_text.h"

#include <fmt/format.h>

namespace vrx {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

using Breakdown = std::tm* (*)(const std::time_t*, std::tm*);

// Up to the seconds, with something between date and time.
std::string text(std::time_t time, Breakdown breakdown, char between) {
    std::tm parts{};
    if (breakdown(&time, &parts) == nullptr) return fmt::format("@{}", time);
    char text[64];
    const std::size_t date = std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
    text[date] = between;
    return {text, date + 1 + std::strftime(text + date + 1, sizeof text - date - 1, "%H:%M:%S", &parts)};
}

std::time_t wholeSeconds(system_clock::time_point time) {
    return system_clock::to_time_t(std::chrono::floor<seconds>(time));
}

std::string fraction(system_clock::time_point time) {
    const auto rest = std::chrono::floor<milliseconds>(time) - std::chrono::floor<seconds>(time);
    return fmt::format(".{:03}", milliseconds(rest).count());
}

}  // namespace

std::string localTime(std::time_t seconds) {
    return text(seconds, ::localtime_r, ' ');
}

std::string localTime(system_clock::time_point time) {
    return text(wholeSeconds(time), ::localtime_r, ' ') + fraction(time);
}

std::string utcTime(std::time_t seconds) {
    return text(seconds, ::gmtime_r, 'T') + "Z";
}

std::string utcTime(system_clock::time_point time) {
    return text(wholeSeconds(time), ::gmtime_r, 'T') + fraction(time) + "Z";
}

}  // namespace vrx
