// Lets the strict reading measure a process in every call, however fast they follow each other.
#pragma once

namespace corvane_bench {

/// While one lives, each look at CLOCK_MONOTONIC tells a second more than the one before: the
/// monitor leaves a process alone that is asked for again within 50 ms.
class FastClock {
public:
    FastClock();
    FastClock(const FastClock&) = delete;
    FastClock& operator=(const FastClock&) = delete;
    ~FastClock();
};

}  // namespace corvane_bench
