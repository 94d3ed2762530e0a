#include "terminal_text.h"

#include "utf8.h"

namespace corvane::program {

namespace {

bool IsControl(uint32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

}  // namespace

std::string Printable(const std::string& text) {
    std::string safe;
    for (size_t position = 0; position < text.size();) {
        const Utf8Character character = DecodeUtf8(text, position);
        if (character.code == NOT_UTF8 || IsControl(character.code)) {
            safe += '?';
        } else {
            safe.append(text, position, character.length);
        }
        position += character.length;
    }
    return safe;
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
        const size_t length = DecodeUtf8(safe, position).length;
        last_start = fitted.size();
        fitted.append(safe, position, length);
        position += length;
        ++used;
    }
    return fitted + std::string(columns - used, ' ');
}

}  // namespace corvane::program
