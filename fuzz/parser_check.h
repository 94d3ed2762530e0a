// The monitor's parsers against sscanf, whose reading of a line they promise.
#pragma once

#include <string_view>

namespace corvane_fuzz {

/// Aborts when a parser and sscanf read a line of the text differently. Looks at the first lines
/// only.
void CheckParsers(std::string_view text);

}  // namespace corvane_fuzz
