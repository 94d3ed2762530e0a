// Figures of any size with the unit that people read them in.
#pragma once

#include <cstdint>
#include <string>

namespace corvane::program {

enum class Prefix { Decimal, Binary };

/// A number of any size in at most five characters, with three significant digits or four: "999",
/// "1.25k", "1023M". The separator stands between number and prefix, and behind a number without.
std::string Scaled(double value, Prefix prefix, const char* separator = "");

/// "125 kB/s", "1.25 MB/s", "17 B/s": at most 9 columns.
std::string RateText(uint64_t bytes_per_second);

/// "1023 GiB", "1.25 MiB", "17 B": at most 8 columns.
std::string BytesText(uint64_t bytes);

}  // namespace corvane::program
