#include "monitor_clock.h"

#include <dlfcn.h>

#include <ctime>

namespace {

bool g_is_fast = false;
time_t g_seconds = 0;

using ClockFunction = int (*)(clockid_t, timespec*);

}  // namespace

namespace corvane_bench {

FastClock::FastClock() {
    g_is_fast = true;
}

FastClock::~FastClock() {
    g_is_fast = false;
}

}  // namespace corvane_bench

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static const auto real = reinterpret_cast<ClockFunction>(dlsym(RTLD_NEXT, "clock_gettime"));
    const int ret = real(clock, time);
    if (g_is_fast && clock == CLOCK_MONOTONIC) {
        time->tv_sec += ++g_seconds;
    }
    return ret;
}
