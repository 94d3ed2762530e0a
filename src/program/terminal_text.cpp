#include "terminal_text.h"

#include <utf8proc.h>

#include <algorithm>
#include <sstream>

#include "utf8.h"

namespace corvane::program {

namespace {

constexpr size_t MAX_MARKS = 4;  // living scripts need two or three

/// A character with its marks, as it stands on a terminal.
struct Cell {
    std::string text;
    size_t columns = 1;
};

enum class Kind { Base, Mark, Unshowable };

Kind KindOf(const Utf8Character& character) {
    if (character.code == NOT_UTF8) {
        return Kind::Unshowable;
    }
    const auto code = static_cast<utf8proc_int32_t>(character.code);
    const utf8proc_property_t& property = *utf8proc_get_property(code);
    if (property.ignorable != 0) {
        return Kind::Unshowable;  // variation selectors, fillers: of no certain width
    }
    switch (property.category) {
        case UTF8PROC_CATEGORY_CN:
        case UTF8PROC_CATEGORY_CC:
        case UTF8PROC_CATEGORY_CF:
        case UTF8PROC_CATEGORY_CS:
        case UTF8PROC_CATEGORY_ZL:
        case UTF8PROC_CATEGORY_ZP:
            return Kind::Unshowable;
        case UTF8PROC_CATEGORY_MN:
        case UTF8PROC_CATEGORY_ME:
            return Kind::Mark;
        default:
            break;
    }
    // The vowel and final of a Hangul syllable share the columns of its first consonant.
    const bool joins = property.boundclass == UTF8PROC_BOUNDCLASS_V ||
                       property.boundclass == UTF8PROC_BOUNDCLASS_T;
    return joins ? Kind::Mark : Kind::Base;
}

std::vector<Cell> CellsOf(const std::string& text) {
    std::vector<Cell> cells;
    size_t marks_left = 0;  // that the last cell may still take
    for (size_t position = 0; position < text.size();) {
        const Utf8Character character = DecodeUtf8(text, position);
        const std::string bytes = text.substr(position, character.length);
        position += character.length;
        const Kind kind = KindOf(character);
        if (kind == Kind::Base) {
            // Spacing marks have no width to the library, one column to terminals.
            const int width = utf8proc_charwidth(static_cast<utf8proc_int32_t>(character.code));
            cells.push_back({bytes, static_cast<size_t>(std::max(1, width))});
            marks_left = MAX_MARKS;
        } else if (kind == Kind::Mark && marks_left > 0) {
            cells.back().text += bytes;
            --marks_left;
        } else {
            cells.push_back({"?", 1});
            marks_left = 0;
        }
    }
    return cells;
}

size_t Total(const std::vector<Cell>& cells) {
    size_t columns = 0;
    for (const Cell& cell : cells) {
        columns += cell.columns;
    }
    return columns;
}

}  // namespace

std::string Printable(const std::string& text) {
    std::string safe;
    for (const Cell& cell : CellsOf(text)) {
        safe += cell.text;
    }
    return safe;
}

size_t ColumnsOf(const std::string& text) {
    return Total(CellsOf(text));
}

std::string FitColumns(const std::string& text, size_t columns) {
    const std::vector<Cell> cells = CellsOf(text);
    const bool cut = Total(cells) > columns;
    if (cut && columns == 0) {
        return "";
    }
    const size_t room = cut ? columns - 1 : columns;
    std::string fitted;
    size_t used = 0;
    for (const Cell& cell : cells) {
        if (used + cell.columns > room) {
            break;
        }
        fitted += cell.text;
        used += cell.columns;
    }
    return fitted + std::string(room - used, ' ') + (cut ? "~" : "");
}

std::vector<std::string> Wrapped(const std::string& text, size_t columns) {
    std::vector<std::string> lines;
    size_t used = 0;  // of the last line
    std::istringstream words(Printable(text));
    for (std::string word; words >> word;) {
        const std::vector<Cell> cells = CellsOf(word);
        if (!lines.empty() && used + 1 + Total(cells) <= columns) {
            lines.back() += ' ';
            ++used;
        } else {
            lines.emplace_back();
            used = 0;
        }
        for (const Cell& cell : cells) {
            if (used + cell.columns > columns) {  // a word longer than a line
                lines.emplace_back();
                used = 0;
            }
            lines.back() += cell.text;
            used += cell.columns;
        }
    }
    return lines;
}

}  // namespace corvane::program
