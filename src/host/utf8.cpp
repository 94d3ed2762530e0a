#include "utf8.h"

namespace corvane {

Utf8Character DecodeUtf8(const std::string& text, size_t position) {
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

std::string ValidUtf8(const std::string& text) {
    std::string valid;
    for (size_t position = 0; position < text.size();) {
        const Utf8Character character = DecodeUtf8(text, position);
        if (character.code == NOT_UTF8) {
            valid += "\xEF\xBF\xBD";
        } else {
            valid.append(text, position, character.length);
        }
        position += character.length;
    }
    return valid;
}

}  // namespace corvane
