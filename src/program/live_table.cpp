#include "live_table.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "terminal_text.h"

namespace corvane::program {

namespace {

using Kind = TableColumn::Kind;

constexpr size_t WIDE = 80;              // columns from which on figures stand apart
constexpr size_t COMFORTABLE_NAME = 24;  // that lesser columns leave to a name
constexpr double HIGH_SHARE = 0.9;

/// Blanks after a column. Figures end in a column for their mark, so they need fewer.
size_t Apart(Kind kind, size_t width) {
    return (width >= WIDE ? 1U : 0U) + (kind == Kind::Figure ? 0U : 1U);
}

/// Above figures, with room for their mark.
std::string Heading(const TableColumn& column) {
    return column.kind == Kind::Figure ? column.heading + " " : column.heading;
}

/// The column's widest text.
size_t Widest(const TableColumn& column, const std::vector<TableRow>& rows, size_t index) {
    size_t widest = std::max(column.columns, ColumnsOf(Heading(column)));
    for (const TableRow& row : rows) {
        widest = std::max(widest, ColumnsOf(row[index].text));
    }
    return widest;
}

/// The width of each column, blanks after it included; 0 for one that is not shown.
std::vector<size_t> Widths(const std::vector<TableColumn>& columns,
                           const std::vector<TableRow>& rows, size_t width) {
    std::vector<size_t> order(columns.size());
    std::iota(order.begin(), order.end(), 0U);
    std::stable_sort(order.begin(), order.end(), [&](size_t left, size_t right) {
        return columns[left].rank < columns[right].rank;
    });
    std::vector<size_t> widths(columns.size());
    size_t left = width;
    const auto grow_names = [&](size_t most) {
        for (size_t i = 0; i < columns.size(); ++i) {
            if (widths[i] > 0 && columns[i].kind == Kind::Name) {
                const size_t wanted =
                    std::min(most, Widest(columns[i], rows, i)) + Apart(Kind::Name, width);
                const size_t more = std::min(left, wanted - std::min(wanted, widths[i]));
                widths[i] += more;
                left -= more;
            }
        }
    };
    int rank = 0;
    for (const size_t i : order) {
        if (std::exchange(rank, columns[i].rank) == 0 && rank > 0) {
            grow_names(COMFORTABLE_NAME);
        }
        const Kind kind = columns[i].kind;
        const size_t least =
            kind == Kind::Figure ? Widest(columns[i], rows, i) : columns[i].columns;
        const size_t wanted = least + Apart(kind, width);
        if (wanted <= left || columns[i].rank == 0) {
            widths[i] = wanted;
            left -= std::min(left, wanted);
        }
    }
    grow_names(width);
    size_t drawings = 0;
    for (size_t i = 0; i < columns.size(); ++i) {
        drawings += widths[i] > 0 && columns[i].kind == Kind::Drawing ? 1U : 0U;
    }
    for (size_t i = 0; i < columns.size(); ++i) {
        if (drawings > 0 && widths[i] > 0 && columns[i].kind == Kind::Drawing) {
            const size_t more = left / drawings--;
            widths[i] += more;
            left -= more;
        }
    }
    return widths;
}

Line DrawCell(const TableCell& cell, Kind kind, size_t width) {
    if (cell.samples != nullptr) {
        return Plot(*cell.samples, cell.full_scale, false, 1, width).front();
    }
    if (cell.share) {
        return Bar(*cell.share, width, *cell.share >= HIGH_SHARE);
    }
    if (kind != Kind::Figure) {
        return {{Shortened(cell.text, width), cell.style}};
    }
    const size_t used = std::min(width, ColumnsOf(cell.text));
    return {{std::string(width - used, ' ')}, {FitColumns(cell.text, used), cell.style}};
}

Line DrawRow(const std::vector<TableColumn>& columns, const TableRow& row,
             const std::vector<size_t>& widths, size_t width) {
    Line line;
    for (size_t i = 0; i < columns.size(); ++i) {
        const size_t apart = Apart(columns[i].kind, width);
        if (widths[i] > apart) {
            for (const Span& span : DrawCell(row[i], columns[i].kind, widths[i] - apart)) {
                line.push_back(span);
            }
            line.push_back({std::string(apart, ' ')});
        }
    }
    return line;
}

}  // namespace

std::vector<Line> DrawTable(const std::vector<TableColumn>& columns,
                            const std::vector<TableRow>& rows, size_t width) {
    const std::vector<size_t> widths = Widths(columns, rows, width);
    TableRow heading;
    for (const TableColumn& column : columns) {
        heading.push_back({Heading(column), Style::Heading});
    }
    Line first = DrawRow(columns, heading, widths, width);
    for (Span& span : first) {
        span.style = Style::Heading;  // blanks as well: a line across
    }
    std::vector<Line> lines = {Justified(first, {}, width)};
    lines.front().back().style = Style::Heading;
    for (const TableRow& row : rows) {
        lines.push_back(DrawRow(columns, row, widths, width));
    }
    return lines;
}

}  // namespace corvane::program
