// Text that other processes chose (commands, devices, paths), made safe for a terminal.
#pragma once

#include <cstddef>
#include <string>

namespace corvane::program {

/// Control characters and bytes that are not UTF-8 become '?'.
std::string Printable(const std::string& text);

/// Printable text in exactly `columns` columns, cut or padded with blanks; a character counts as
/// one column. Cut text ends in '~'.
std::string FitColumns(const std::string& text, size_t columns);

}  // namespace corvane::program
