#include "scaled_text.h"

#include <spdlog/fmt/fmt.h>

namespace corvane::program {

std::string Scaled(double value, Prefix prefix, const char* separator) {
    const double base = prefix == Prefix::Decimal ? 1000 : 1024;
    const char* const names = prefix == Prefix::Decimal ? " kMGTPE" : " KMGTPE";
    size_t power = 0;
    while (value >= base - 0.5 && names[power + 1] != '\0') {
        value /= base;
        ++power;
    }
    if (power == 0) {
        return fmt::format("{:.0f}{}", value, separator);
    }
    const int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    return fmt::format("{:.{}f}{}{}", value, decimals, separator, names[power]);
}

std::string RateText(uint64_t bytes_per_second) {
    return Scaled(static_cast<double>(bytes_per_second), Prefix::Decimal, " ") + "B/s";
}

std::string BytesText(uint64_t bytes) {
    return Scaled(static_cast<double>(bytes), Prefix::Binary, " ") + (bytes < 1024 ? "B" : "iB");
}

}  // namespace corvane::program
