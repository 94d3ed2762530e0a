// A report as lines of text that fit 80 columns.
#pragma once

#include <string>

#include "report.h"

namespace corvane::program {

/// Text for a terminal or a pipe, each line ended. A figure that was not measured is "-", one that
/// does not exist by nature "none", a stale one is followed by '*'; lines at the end give the
/// reasons. With `colour`, headings are bold and high loads red (ANSI sequences).
std::string FormatTable(const Report& report, bool colour);

}  // namespace corvane::program
