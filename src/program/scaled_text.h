// Figures of any size with the unit that people read them in.
#pragma once

#include <cstdint>
#include <string>

namespace corvane::program {

/// Three significant digits in at most 9 columns: "125 kB/s", "1.25 MB/s", "17 B/s"; units of 1000.
std::string RateText(uint64_t bytes_per_second);

/// Three significant digits, four from 1000 on, in at most 8 columns: "1023 GiB"; units of 1024.
std::string BytesText(uint64_t bytes);

/// As BytesText, of a figure in MiB.
std::string MibText(uint64_t mib);

}  // namespace corvane::program
