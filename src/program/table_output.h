// A report as lines of text that fit 80 columns.
#pragma once

#include <string>

#include "report.h"

namespace corvane::program {

/// Text for a terminal or a pipe, each line ended. A figure that was not measured is "-"; a stale
/// one is followed by '*'. With `colour`, headings are bold and high loads red (ANSI sequences).
std::string FormatTable(const Report& report, bool colour);

}  // namespace corvane::program
