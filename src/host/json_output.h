// A report as one JSON object on one line. The keys are documented in docs/outputs.md.
#pragma once

#include <string>

#include "report.h"

namespace corvane_host {

/// One line, ended. Valid JSON in valid UTF-8 whatever a path, device or command name holds.
/// Figures that were not measured are null.
std::string FormatJson(const Report& report);

}  // namespace corvane_host
