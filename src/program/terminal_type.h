// What is known of the terminal's type (TERM), apart from drawing: <term.h> takes short names for
// macros, so that nothing else can stand beside it.
#pragma once

#include <string>

namespace corvane::program {

/// What a terminal of this type takes to be left as it was found, after full-screen drawing.
/// Writes nothing to it.
/// @throws std::runtime_error TERM is not set, not known, or of a terminal that cannot place text
std::string TerminalTypeRestoreText();

}  // namespace corvane::program
