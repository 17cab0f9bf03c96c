// Texts in columns of a terminal, by the character set of the process's locale: a wide character takes two columns, a
// combining one none.
#pragma once

#include <cstddef>
#include <cwchar>
#include <string>
#include <string_view>
#include <vector>

namespace vrx {

// A text of others in one line: what does not reach a terminal (terminal_text.h), or what this one cannot show, is
// escaped. The functions below take such texts.
std::string screenText(std::string_view text);

std::size_t columnsOf(std::string_view text);

// Exactly so many columns: filled up with blanks, or cut, then with ">" as the last one.
std::string fitted(std::string_view text, std::size_t columns);

// In lines of at most so many columns, at blanks where there are some. At least one line.
std::vector<std::string> wrapped(std::string_view text, std::size_t columns);

std::wstring wideText(std::string_view text);
std::string utf8Of(std::wint_t character);

}  // namespace vrx
