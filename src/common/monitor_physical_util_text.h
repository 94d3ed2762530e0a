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

inline bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

inline bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

inline const char* SkipSpace(const char* text) {
    while (IsSpace(*text)) {
        ++text;
    }
    return text;
}

/// Skips to the end of the word that `text` stands in.
inline void SkipRestOfWord(const char*& text) {
    while (*text != '\0' && !IsSpace(*text)) {
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

/// The number in a run of digits; false when 64 bits do not hold it.
inline bool ToNumber(const char* first, const char* end, uint64_t& number) {
    constexpr uint64_t BASE = 10;
    constexpr ptrdiff_t DIGITS_THAT_FIT = 19;
    const bool fits = end - first <= DIGITS_THAT_FIT;
    bool overflow = false;
    number = 0;
    for (; first != end; ++first) {
        const auto digit = static_cast<uint64_t>(*first - '0');
        if (fits) {
            number = number * BASE + digit;
            continue;
        }
        overflow = __builtin_mul_overflow(number, BASE, &number) || overflow;
        overflow = __builtin_add_overflow(number, digit, &number) || overflow;
    }
    return !overflow;
}

inline bool ScanNumber(const char*& text, uint64_t& value) {
    const char* first = SkipSpace(text);
    const bool negative = *first == '-';
    if (*first == '-' || *first == '+') {
        ++first;
    }
    const char* end = first;
    while (IsDigit(*end)) {
        ++end;
    }
    if (end == first) {
        return false;
    }
    if (!ToNumber(first, end, value)) {
        value = UINT64_MAX;
    } else if (negative) {
        value = 0 - value;
    }
    text = end;
    return true;
}

inline bool SkipNumbers(const char*& text, int count) {
    uint64_t ignored = 0;
    while (count > 0 && ScanNumber(text, ignored)) {
        --count;
    }
    return count == 0;
}

}  // namespace CorvaneCommon
