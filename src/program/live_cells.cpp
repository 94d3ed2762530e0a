#include "live_cells.h"

#include <spdlog/fmt/fmt.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <sstream>

#include "terminal_text.h"
#include "utf8.h"

namespace corvane::program {

namespace {

/// A character of graphs and bars, and what stands for it on lesser terminals.
struct Block {
    const char* eighths;
    const char* halves;
    const char* ascii;
};

constexpr size_t LEAST_SHORTENED = 8;  // below, only the beginning is shown

constexpr Block FROM_BELOW[] = {
    {" ", " ", " "},           {"\u2581", ".", "."},      {"\u2582", ".", "."},
    {"\u2583", "\u2584", ":"}, {"\u2584", "\u2584", ":"}, {"\u2585", "\u2584", ":"},
    {"\u2586", "\u2588", "#"}, {"\u2587", "\u2588", "#"}, {"\u2588", "\u2588", "#"},
};
constexpr Block FROM_LEFT[] = {
    {" ", " ", " "},           {"\u258F", " ", " "},      {"\u258E", " ", " "},
    {"\u258D", "\u258C", " "}, {"\u258C", "\u258C", "#"}, {"\u258B", "\u258C", "#"},
    {"\u258A", "\u2588", "#"}, {"\u2589", "\u2588", "#"}, {"\u2588", "\u2588", "#"},
};
constexpr Block OTHERS[] = {{GAP, GAP, "?"}};

template <size_t COUNT>
const Block* Find(const Block (&blocks)[COUNT], const std::string& character) {
    const auto* const found =
        std::find_if(std::begin(blocks), std::end(blocks),
                     [&](const Block& block) { return character == block.eighths; });
    return found == std::end(blocks) ? nullptr : found;
}

const Block* FindBlock(const std::string& character) {
    const Block* block = Find(FROM_BELOW, character);
    if (block == nullptr) {
        block = Find(FROM_LEFT, character);
    }
    return block != nullptr ? block : Find(OTHERS, character);
}

/// Columns of a character; a mark has none, but by itself it would count as one.
size_t Width(const std::string& character) {
    return ColumnsOf("x" + character) - 1;
}

}  // namespace

Span::Span(std::string safe_text, Style its_style)
    : text(std::move(safe_text)), style(its_style), columns(ColumnsOf(text)) {}

const char* Column(size_t eighths) {
    return FROM_BELOW[std::min(eighths, EIGHTHS)].eighths;
}

Line Bar(double share, size_t columns, bool high) {
    const size_t inside = columns - 2;
    const double cells = std::clamp(share, 0.0, 1.0) * static_cast<double>(inside);
    const auto filled = static_cast<size_t>(std::lround(cells * EIGHTHS));
    std::string text;
    for (size_t cell = 0; cell < inside; ++cell) {
        const size_t before = cell * EIGHTHS;
        text += FROM_LEFT[std::min(EIGHTHS, filled - std::min(filled, before))].eighths;
    }
    return {{"[", Style::Quiet},
            {text, high ? Style::HighGraph : Style::Graph, inside},
            {"]", Style::Quiet}};
}

size_t ColumnsOf(const Line& line) {
    size_t columns = 0;
    for (const Span& span : line) {
        columns += span.columns;
    }
    return columns;
}

Line Cut(const Line& line, size_t columns) {
    Line cut;
    for (const Span& span : line) {
        if (span.columns > columns) {
            cut.push_back({FitColumns(span.text, columns), span.style, columns});
            break;
        }
        cut.push_back(span);
        columns -= span.columns;
    }
    return cut;
}

Line Justified(const Line& left, const Line& right, size_t columns) {
    const size_t right_columns = std::min(columns, ColumnsOf(right));
    const size_t gap = right_columns == 0 ? 0 : 1;
    Line line = Cut(left, columns - std::min(columns, right_columns + gap));
    const size_t used = ColumnsOf(line) + right_columns;
    line.push_back({std::string(columns - std::min(columns, used), ' ')});
    for (const Span& span : Cut(right, right_columns)) {
        line.push_back(span);
    }
    return line;
}

std::string Shortened(const std::string& text, size_t columns) {
    if (columns < LEAST_SHORTENED || ColumnsOf(text) <= columns) {
        return FitColumns(text, columns);
    }
    const std::string safe = Printable(text);
    std::vector<size_t> starts;  // of characters
    for (size_t position = 0; position < safe.size();) {
        starts.push_back(position);
        position += DecodeUtf8(safe, position).length;
    }
    const size_t room = columns / 2;
    size_t used = 0;
    size_t tail = safe.size();
    for (auto start = starts.rbegin(); start != starts.rend(); ++start) {
        used += Width(safe.substr(*start, tail - *start));
        if (used > room) {
            break;
        }
        tail = *start;
    }
    return FitColumns(FitColumns(safe, columns - room) + safe.substr(tail), columns);
}

std::string Rendered(const std::string& text, Charset charset) {
    if (charset == Charset::Eighths) {
        return text;
    }
    std::string rendered;
    for (size_t position = 0; position < text.size();) {
        const size_t length = DecodeUtf8(text, position).length;
        const std::string character = text.substr(position, length);
        position += length;
        if (const Block* const block = FindBlock(character)) {
            rendered += charset == Charset::Halves ? block->halves : block->ascii;
        } else if (charset == Charset::Halves || length == 1) {
            rendered += character;
        } else {
            rendered += std::string(Width(character), '?');
        }
    }
    return rendered;
}

}  // namespace corvane::program
