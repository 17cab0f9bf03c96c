// A placeholder of a template, "##07", and its value map, "##07{raw value:text;raw value:text}":
// docs/alarm-definitions.md.
#pragma once

#include <cstddef>
#include <string_view>

constexpr std::string_view PLACEHOLDER_MARK = "##";
constexpr std::size_t PLACEHOLDER_INDEX_LENGTH = 2;  // digits after the mark

// The brace of a value map stands at most this far after the start of its placeholder.
constexpr std::size_t PLACEHOLDER_MAP_DISTANCE = 7;

constexpr char MAP_ENTRY_SEPARATOR = ';';  // between the entries of a value map
constexpr char MAP_VALUE_SEPARATOR = ':';  // between an entry's raw value and its text
