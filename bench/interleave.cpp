#include "interleave.h"

#include <algorithm>
#include <cstddef>
#include <ctime>

namespace corvane_bench {

namespace {

constexpr double BATCH_MICROSECONDS = 300;
constexpr double MICROSECONDS_PER_SECOND = 1e6;
constexpr double NANOSECONDS_PER_MICROSECOND = 1e3;

double CPUMicroseconds() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * MICROSECONDS_PER_SECOND +
           static_cast<double>(now.tv_nsec) / NANOSECONDS_PER_MICROSECOND;
}

/// One call before the clock starts: an expensive neighbour leaves the caches to whoever follows.
double TimePerCall(const Operation& operation, int calls) {
    operation();
    const double start = CPUMicroseconds();
    for (int call = 0; call < calls; ++call) {
        operation();
    }
    return (CPUMicroseconds() - start) / calls;
}

/// How many calls fill a batch.
int CallsPerBatch(const Operation& operation) {
    return std::max(1, static_cast<int>(BATCH_MICROSECONDS / TimePerCall(operation, 3)));
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

std::vector<Timing> Interleave(const std::vector<Operation>& operations, int rounds) {
    const size_t count = operations.size();
    std::vector<int> calls(count);
    for (size_t i = 0; i < count; ++i) {
        calls[i] = operations[i] ? CallsPerBatch(operations[i]) : 0;
    }
    std::vector<std::vector<double>> times(count);
    std::vector<std::vector<double>> ratios(count);
    std::vector<double> round_times(count);
    for (int round = 0; round < rounds; ++round) {
        // Each round starts with another one, so that none always follows the same neighbour.
        for (size_t turn = 0; turn < count; ++turn) {
            const size_t i = (turn + static_cast<size_t>(round)) % count;
            if (operations[i]) {
                round_times[i] = TimePerCall(operations[i], calls[i]);
            }
        }
        for (size_t i = 0; i < count; ++i) {
            times[i].push_back(round_times[i]);
            ratios[i].push_back(round_times[i] / round_times[0]);
        }
    }
    std::vector<Timing> timings(count);
    for (size_t i = 0; i < count; ++i) {
        timings[i] = {Median(times[i]), Median(ratios[i])};
    }
    return timings;
}

}  // namespace corvane_bench
