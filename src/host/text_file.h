// Reading a file or a folder of the kernel's, or a short file of somebody's, whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvane {

/// Why a path gave nothing.
struct PathTrouble {
    int error_number = 0;  ///< an errno; 0 where there is none
    std::string text;      ///< in words; empty: no trouble
};

/// "cannot VERB PATH: why", from an errno.
PathTrouble Trouble(const char* verb, const std::string& path, int error_number);

/// The whole of a file, up to `most` bytes. What cannot be read to its end is no text: a process
/// that ends between opening and reading leaves nothing, as one that ended before. May block where
/// the path does.
/// @param trouble where given, says why there is no text; left alone otherwise
std::string ReadWholeFile(const std::string& path, PathTrouble* trouble = nullptr,
                          size_t most = SIZE_MAX);

/// The entries of a folder but those that begin with a dot, sorted; none when it cannot be opened.
std::vector<std::string> NamesIn(const std::string& folder);

/// Why nothing came of a kernel's file, in words: it cannot be read, or `otherwise`.
std::string WhyNothingCameOf(const std::string& path, const std::string& otherwise);

}  // namespace corvane
