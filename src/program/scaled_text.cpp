#include "scaled_text.h"

#include <spdlog/fmt/fmt.h>

namespace corvane::program {

namespace {

constexpr const char* RATES[] = {"B/s", "kB/s", "MB/s", "GB/s", "TB/s", "PB/s", "EB/s"};
constexpr const char* BYTES[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB", "ZiB", "YiB"};
constexpr const char* const* MIB = &BYTES[2];

/// The largest figure, 2^64 - 1, must find its unit.
std::string Scaled(uint64_t value, double step, const char* const* unit) {
    if (static_cast<double>(value) < step) {
        return fmt::format("{} {}", value, *unit);
    }
    auto scaled = static_cast<double>(value);
    // As it will be shown: 999.6 kB is 1.00 MB.
    while (scaled >= step - 0.5) {
        scaled /= step;
        ++unit;
    }
    const int decimals = scaled < 9.995 ? 2 : scaled < 99.95 ? 1 : 0;
    return fmt::format("{:.{}f} {}", scaled, decimals, *unit);
}

}  // namespace

std::string RateText(uint64_t bytes_per_second) {
    return Scaled(bytes_per_second, 1000, RATES);
}

std::string BytesText(uint64_t bytes) {
    return Scaled(bytes, 1024, BYTES);
}

std::string MibText(uint64_t mib) {
    return Scaled(mib, 1024, MIB);
}

}  // namespace corvane::program
