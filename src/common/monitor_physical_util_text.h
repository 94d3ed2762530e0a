// Text of kernel files: buffers, lines and fields. Internal: not installed.
//
// Scanners read on from `text` and leave it behind what they read; on a mismatch they return false
// and the target keeps its value. They accept what sscanf's %s and %lu accept in the C locale, so
// a parser is a chain of them, at a tenth of sscanf's cost per number. A number with more digits
// than 64 bits hold reads as 2^64 - 1; a minus sign negates modulo 2^64.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <system_error>

#include "monitor_physical_util.h"

namespace CorvaneCommon {

constexpr size_t FILE_BUFFER_LENGTH = 40960;  // a whole kernel file, or one line of one

constexpr uint64_t KIB_TO_MIB_SHIFT = 10;

inline bool IsEmpty(const char* text) {
    return text == nullptr || *text == '\0';
}

/// Copies text that ends at a NUL or after `max_length` characters, cut to what the destination
/// holds with its NUL. The destination may be the source.
inline void CopyText(char* destination, size_t size, const char* source,
                     size_t max_length = SIZE_MAX) {
    const size_t length = strnlen(source, std::min(max_length, size - 1));
    memmove(destination, source, length);
    destination[length] = '\0';
}

inline void CopyName(char (&destination)[MONITOR_NAME_LENGTH], const char* source,
                     size_t max_length = SIZE_MAX) {
    CopyText(destination, sizeof(destination), source, max_length);
}

/// "/proc/PID/" and what follows.
inline void FormatProcessPath(char (&path)[MONITOR_NAME_LENGTH], uint32_t pid, const char* entry) {
    constexpr char PREFIX[] = "/proc/";
    memcpy(path, PREFIX, sizeof(PREFIX));
    char* const end = std::to_chars(path + strlen(PREFIX), std::end(path), pid).ptr;
    *end = '/';
    CopyText(end + 1, static_cast<size_t>(std::end(path) - end) - 1, entry);
}

/// Ends the line at `position` at its newline. Returns the start of the next line, or null when
/// there is no newline.
inline char* CutLine(char* position) {
    char* const newline = strchr(position, '\n');
    if (newline == nullptr) {
        return nullptr;
    }
    *newline = '\0';
    return newline + 1;
}

/// The start of the line behind the one at `position`, or null when there is none.
inline char* NextLine(char* position) {
    char* const newline = strchr(position, '\n');
    return newline == nullptr || newline[1] == '\0' ? nullptr : newline + 1;
}

/// Whether nothing but blanks stands before a place in its line.
inline bool IsFirstInLine(const char* text, const char* place) {
    while (place != text && place[-1] == ' ') {
        --place;
    }
    return place == text || place[-1] == '\n';
}

/// The first line whose first field is `name`, followed by `end`; null when there is none. Points
/// to the name.
inline char* FindLine(char* text, const char* name, char end) {
    const size_t length = strlen(name);
    for (char* found = strstr(text, name); found != nullptr; found = strstr(found + 1, name)) {
        if (found[length] == end && IsFirstInLine(text, found)) {
            return found;
        }
    }
    return nullptr;
}

inline bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// Above 9 when the character is no digit.
inline uint32_t DigitValue(char c) {
    return static_cast<uint32_t>(static_cast<unsigned char>(c)) - '0';
}

inline bool IsDigit(char c) {
    return DigitValue(c) <= 9;
}

inline const char* SkipSpace(const char* text) {
    while (*text == ' ') {  // by itself: columns are padded with many
        ++text;
    }
    while (IsSpace(*text)) {
        ++text;
    }
    return text;
}

/// Skips to the end of the word that `text` stands in.
inline void SkipRestOfWord(const char*& text) {
    // Nearly all characters are above the blank, which settles it in one comparison.
    while (*text > ' ' || (*text != '\0' && !IsSpace(*text))) {
        ++text;
    }
}

inline bool SkipWord(const char*& text) {
    const char* position = SkipSpace(text);
    if (*position == '\0') {
        return false;
    }
    SkipRestOfWord(position);
    text = position;
    return true;
}

/// The next word up to a blank or the line's end; empty at the end.
inline std::string TakeWord(const char*& line) {
    line += strspn(line, " \t");
    const size_t length = strcspn(line, " \t\n");
    std::string word(line, length);
    line += length;
    return word;
}

/// Reads a word of at most 127 characters; a longer one continues as the next field.
inline bool ScanName(const char*& text, char (&name)[MONITOR_NAME_LENGTH]) {
    const char* position = SkipSpace(text);
    if (*position == '\0') {
        return false;
    }
    size_t length = 0;
    while (length < MONITOR_NAME_LENGTH - 1 && *position != '\0' && !IsSpace(*position)) {
        name[length++] = *position++;
    }
    name[length] = '\0';
    text = position;
    return true;
}

/// Whether 64 bits hold the number in a run of digits. Kept out of the scanner's way: inlined, it
/// costs a walk over threads a twentieth.
[[gnu::cold]] inline bool FitsNumber(const char* first, const char* end) {
    uint64_t number = 0;
    return std::from_chars(first, end, number).ec == std::errc();
}

/// Skips to the first digit of the next number; false when there is none.
inline bool SkipToDigits(const char*& text, bool& negative) {
    const char* first = SkipSpace(text);
    negative = false;
    if (!IsDigit(*first)) {
        negative = *first == '-';
        if ((!negative && *first != '+') || !IsDigit(*++first)) {
            return false;
        }
    }
    text = first;
    return true;
}

inline bool ScanNumber(const char*& text, uint64_t& value) {
    constexpr uint64_t BASE = 10;
    constexpr ptrdiff_t DIGITS_THAT_FIT = 19;
    bool negative = false;
    if (!SkipToDigits(text, negative)) {
        return false;
    }
    const char* const first = text;
    uint64_t number = 0;
    for (; IsDigit(*text); ++text) {
        number = number * BASE + DigitValue(*text);
    }
    if (text - first > DIGITS_THAT_FIT && !FitsNumber(first, text)) {
        value = UINT64_MAX;
    } else {
        value = negative ? 0 - number : number;
    }
    return true;
}

inline bool SkipNumbers(const char*& text, int count) {
    bool negative = false;
    for (; count > 0 && SkipToDigits(text, negative); --count) {
        while (IsDigit(*text)) {
            ++text;
        }
    }
    return count == 0;
}

}  // namespace CorvaneCommon
