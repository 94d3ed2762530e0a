// UTF-8 in text that other processes chose: commands, devices, paths.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace corvane {

constexpr uint32_t NOT_UTF8 = UINT32_MAX;

struct Utf8Character {
    uint32_t code = NOT_UTF8;  ///< NOT_UTF8: a byte that belongs to no character
    size_t length = 1;         ///< bytes
};

/// The character at `position`: shortest form, no surrogates, at most U+10FFFF.
Utf8Character DecodeUtf8(const std::string& text, size_t position);

/// For labels and JSON: bytes that are not UTF-8 become U+FFFD; everything else stays.
std::string ValidUtf8(const std::string& text);

}  // namespace corvane
