#include "text_safety.h"

#include <cstdint>

namespace corvane_host {

namespace {

constexpr uint32_t NOT_UTF8 = UINT32_MAX;

struct Character {
    uint32_t code = NOT_UTF8;
    size_t length = 1;
};

/// The character at `position`: shortest form, no surrogates, at most U+10FFFF.
Character Decode(const std::string& text, size_t position) {
    const auto byte = [&](size_t offset) -> uint32_t {
        return position + offset < text.size() ? static_cast<unsigned char>(text[position + offset])
                                               : 0;
    };
    const uint32_t first = byte(0);
    if (first < 0x80) {
        return {first, 1};
    }
    size_t length = 0;
    uint32_t code = 0;
    uint32_t smallest = 0;
    if (first >= 0xC2 && first <= 0xDF) {
        length = 2;
        code = first & 0x1FU;
        smallest = 0x80;
    } else if ((first & 0xF0U) == 0xE0) {
        length = 3;
        code = first & 0x0FU;
        smallest = 0x800;
    } else if (first >= 0xF0 && first <= 0xF4) {
        length = 4;
        code = first & 0x07U;
        smallest = 0x10000;
    } else {
        return {};
    }
    for (size_t offset = 1; offset < length; ++offset) {
        if ((byte(offset) & 0xC0U) != 0x80) {
            return {};
        }
        code = code << 6U | (byte(offset) & 0x3FU);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < smallest || code > 0x10FFFF || surrogate) {
        return {};
    }
    return {code, length};
}

bool IsControl(uint32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

}  // namespace

std::string Printable(const std::string& text) {
    std::string safe;
    for (size_t position = 0; position < text.size();) {
        const Character character = Decode(text, position);
        if (character.code == NOT_UTF8 || IsControl(character.code)) {
            safe += '?';
        } else {
            safe.append(text, position, character.length);
        }
        position += character.length;
    }
    return safe;
}

std::string ValidUtf8(const std::string& text) {
    std::string valid;
    for (size_t position = 0; position < text.size();) {
        const Character character = Decode(text, position);
        if (character.code == NOT_UTF8) {
            valid += "\xEF\xBF\xBD";
        } else {
            valid.append(text, position, character.length);
        }
        position += character.length;
    }
    return valid;
}

std::string FitColumns(const std::string& text, size_t columns) {
    const std::string safe = Printable(text);
    std::string fitted;
    size_t used = 0;
    size_t last_start = 0;
    for (size_t position = 0; position < safe.size();) {
        if (used == columns) {
            fitted.resize(last_start);
            return fitted + '~';
        }
        const size_t length = Decode(safe, position).length;
        last_start = fitted.size();
        fitted.append(safe, position, length);
        position += length;
        ++used;
    }
    return fitted + std::string(columns - used, ' ');
}

}  // namespace corvane_host
