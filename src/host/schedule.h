// When something periodic is due, without drift and without a burst after a pause.
#pragma once

#include <chrono>
#include <cstdint>

namespace corvane {

using Clock = std::chrono::steady_clock;

class Schedule {
public:
    /// First due one period after `start`.
    Schedule(Clock::time_point start, std::chrono::seconds period)
        : m_period(period), m_due(start + period) {}

    Clock::time_point Due() const { return m_due; }
    bool IsDue(Clock::time_point now) const { return now >= m_due; }

    /// The next tick on the grid that began at the start; ticks that were missed are left out.
    void Advance(Clock::time_point now) {
        const auto missed = now < m_due ? 0 : (now - m_due) / m_period;
        m_due += m_period * (missed + 1);
    }

private:
    std::chrono::seconds m_period;
    Clock::time_point m_due;
};

/// Time since `since` in whole seconds, rounded and never 0, as the monitor's rates take it.
inline uint64_t ElapsedSeconds(Clock::time_point since, Clock::time_point now) {
    const auto seconds = std::chrono::round<std::chrono::seconds>(now - since).count();
    return seconds < 1 ? 1 : static_cast<uint64_t>(seconds);
}

}  // namespace corvane
