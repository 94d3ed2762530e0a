// What the reader of the live view should know about the figures: notes, and why some are missing.
#pragma once

#include <cstddef>

#include "live_sections.h"
#include "report.h"

namespace corvane::program {

/// The report's notes and why families have no figures, or old ones: what is worst first. With
/// `all` also, last, why directories have no disk, which is no news to whoever asked for them.
Section NoteSection(const Report& report, bool all, size_t columns);

}  // namespace corvane::program
