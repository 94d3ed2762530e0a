// When something periodic is due, without drift and without a burst after a pause.
#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>

namespace corvane {

using Clock = std::chrono::steady_clock;

class Schedule {
public:
    /// First due one period after `start`.
    Schedule(Clock::time_point start, std::chrono::seconds period)
        : m_period(period), m_due(start + period) {}

    Clock::time_point Due() const { return m_due; }

    /// Whether it is due; then the next tick is, on the grid that began at the start. Ticks that
    /// were missed are left out.
    bool TakeIfDue(Clock::time_point now) {
        if (now < m_due) {
            return false;
        }
        m_due += m_period * ((now - m_due) / m_period + 1);
        return true;
    }

private:
    std::chrono::seconds m_period;
    Clock::time_point m_due;
};

/// Time since `since` in whole seconds, rounded and never 0.
inline uint64_t ElapsedSeconds(Clock::time_point since, Clock::time_point now) {
    const auto seconds = std::chrono::round<std::chrono::seconds>(now - since).count();
    return seconds < 1 ? 1 : static_cast<uint64_t>(seconds);
}

/// The time that a rate is over. The monitor divides by whole seconds, cycles that come late are
/// over a fraction more.
class Elapsed {
public:
    Elapsed(Clock::time_point since, Clock::time_point now)
        : m_seconds(std::chrono::duration<double>(now - since).count()),
          m_whole(std::max(1.0, std::ceil(m_seconds - TOLERANCE))) {}

    /// What to tell the monitor: so many that no figure of its reaches its limit too early.
    uint64_t Whole() const { return static_cast<uint64_t>(m_whole); }

    /// A rate of the monitor's, over the time that passed.
    uint64_t Correct(uint64_t rate) const {
        if (std::abs(m_whole - m_seconds) <= TOLERANCE || m_seconds <= TOLERANCE) {
            return rate;
        }
        return static_cast<uint64_t>(std::llround(static_cast<double>(rate) * m_whole / m_seconds));
    }

private:
    static constexpr double TOLERANCE = 0.05;  // seconds that a cycle may be late for nothing

    double m_seconds;
    double m_whole;
};

}  // namespace corvane
