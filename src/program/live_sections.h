// The parts of the live view below its graphs, each a list of rows.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "live_cells.h"
#include "live_graph.h"
#include "report.h"

namespace corvane::program {

/// What a row shows, for counting rows that do not fit.
struct Noun {
    std::string_view one;
    std::string_view many;
};

/// Rows that belong together under a heading that stays in sight while they are scrolled.
struct Section {
    struct Row {
        Line line;
        size_t items = 1;  ///< shown in it, of the section's noun
    };

    Noun noun;
    Line heading;  ///< empty: none
    std::vector<Row> rows;
};

/// A bar for each core, in `max_rows` lines at most: with names and figures while these fit,
/// otherwise a character for each core. `max_rows` 0: with figures, however many lines it takes.
Section CoreSection(const CpuFigures& cpu, size_t columns, size_t max_rows);

Section InterfaceSection(const NetworkFigures& network, const Histories& histories, size_t columns);

Section DirectorySection(const std::vector<DirectoryFigures>& directories, size_t columns);

Section ProcessSection(const std::vector<ProcessFigures>& processes, const Histories& histories,
                       size_t columns);

}  // namespace corvane::program
