// Text that other processes chose (commands, devices, paths), made safe for a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace corvane::program {

/// One line that shows as it reads. A '?' stands for each character that would not: control and
/// format characters (those that turn the direction or have no width among them), separators of
/// lines and paragraphs, characters that Unicode has not assigned, and bytes that are no UTF-8.
/// Combining marks stay with the character before them; one without such a character, and more
/// than four on one, are '?' as well, so that no run of them piles up over other lines.
std::string Printable(const std::string& text);

/// How many columns Printable(text) takes on a terminal: two for a wide character, none for a
/// combining mark.
size_t ColumnsOf(const std::string& text);

/// Printable text in exactly `columns` columns, padded with blanks, or cut and ended in '~'.
std::string FitColumns(const std::string& text, size_t columns);

/// Printable text in lines of at most `columns`, 2 or more, parted at blanks where there are any.
std::vector<std::string> Wrapped(const std::string& text, size_t columns);

}  // namespace corvane::program
