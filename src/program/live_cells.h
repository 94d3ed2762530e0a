// Lines of a screen before any terminal: pieces of text, each with a style.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace corvane::program {

enum class Style {
    Plain,
    Title,
    Heading,    ///< of a table
    Quiet,      ///< what stands around figures
    Graph,      ///< graphs and bars
    HighGraph,  ///< the same, where a figure is alarming
    Alarm,
    Note,
};

/// Text that is safe for a terminal, see Printable(), and the columns that it takes there.
struct Span {
    Span(std::string safe_text, Style its_style = Style::Plain);
    Span(std::string safe_text, Style its_style, size_t its_columns)
        : text(std::move(safe_text)), style(its_style), columns(its_columns) {}

    std::string text;
    Style style;
    size_t columns;
};

/// Spans one after the other, from the first column on.
using Line = std::vector<Span>;

/// What a terminal can show. Lines are made for the richest; see Rendered().
enum class Charset {
    Ascii,
    Halves,   ///< UTF-8, but the font has whole and half blocks only: the Linux console
    Eighths,  ///< UTF-8 with blocks in steps of an eighth
};

constexpr size_t EIGHTHS = 8;

/// A character that is filled from below, by 0 (a blank) to 8 eighths.
const char* Column(size_t eighths);

/// Stands in a graph where nothing was measured.
constexpr const char* GAP = "\u00B7";

/// `[####    ]` with `share` (0 to 1) of the inside filled, in exactly `columns`, 3 or more.
Line Bar(double share, size_t columns, bool high);

size_t ColumnsOf(const Line& line);

/// Cut to at most `columns`.
Line Cut(const Line& line, size_t columns);

/// `left`, cut where needed, and `right` at the end of `columns`; `right` has the right of way.
Line Justified(const Line& left, const Line& right, size_t columns);

/// Printable text in exactly `columns`; of what is too long the middle is left out, as paths and
/// names of one kind often differ at the end only.
std::string Shortened(const std::string& text, size_t columns);

/// A span's text as the terminal can show it: in the same columns, with other characters.
std::string Rendered(const std::string& text, Charset charset);

}  // namespace corvane::program
