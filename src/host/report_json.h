// Reports as JSON, for programs.
#pragma once

#include <string>

#include "report.h"

namespace corvane {

/// One object on one line, without a newline, in ASCII: everything else is escaped. What was not
/// measured is null. docs/outputs.md describes it.
std::string ReportToJson(const Report& report);

}  // namespace corvane
