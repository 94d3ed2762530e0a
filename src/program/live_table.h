// A table whose figures always stand in full: what gives way are names, bars and lesser columns.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "live_cells.h"
#include "live_graph.h"

namespace corvane::program {

struct TableColumn {
    enum class Kind {
        Name,    ///< text that is cut where needed
        Figure,  ///< as wide as its widest cell, at the right
        Drawing  ///< a bar or a graph, which takes what is left
    };

    std::string heading;
    Kind kind = Kind::Figure;
    size_t columns = 0;  ///< at least
    int rank = 0;        ///< 0: always shown; others while there is room, the lowest first
};

struct TableCell {
    std::string text;
    Style style = Style::Plain;
    std::optional<double> share = {};  ///< a bar, filled by 0 to 1
    const Samples* samples = nullptr;  ///< a graph
    double full_scale = 0;             ///< the graph's
};

using TableRow = std::vector<TableCell>;  ///< a cell for each column

/// The heading and a line for each row, of at most `width` columns where the figures allow.
std::vector<Line> DrawTable(const std::vector<TableColumn>& columns,
                            const std::vector<TableRow>& rows, size_t width);

}  // namespace corvane::program
