#include "interleave.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>

namespace corvane_bench {

namespace {

/// Collects the CPU time per call of each batch, by the operation's number; prints nothing.
class Collector : public benchmark::BenchmarkReporter {
public:
    explicit Collector(size_t operations) : m_batches(operations) {}

    bool ReportContext(const Context& /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration) {
                m_batches[std::stoul(run.run_name.function_name)].push_back(
                    run.GetAdjustedCPUTime());
            }
        }
    }

    double Median(size_t operation) {
        std::vector<double>& batches = m_batches[operation];
        if (batches.empty()) {
            return 0;
        }
        const auto middle = batches.begin() + static_cast<ptrdiff_t>(batches.size() / 2);
        std::nth_element(batches.begin(), middle, batches.end());
        return *middle;
    }

private:
    std::vector<std::vector<double>> m_batches;
};

void SetFlags(int rounds) {
    std::string flags[] = {"", "--benchmark_enable_random_interleaving=true",
                           "--benchmark_min_time=0.0003",
                           "--benchmark_repetitions=" + std::to_string(rounds)};
    char* arguments[std::size(flags)];
    std::transform(std::begin(flags), std::end(flags), arguments,
                   [](std::string& flag) { return flag.data(); });
    int count = static_cast<int>(std::size(flags));
    benchmark::Initialize(&count, arguments);
}

}  // namespace

std::vector<Timing> Interleave(const std::vector<Operation>& operations, int rounds) {
    SetFlags(rounds);
    for (size_t i = 0; i < operations.size(); ++i) {
        if (!operations[i]) {
            continue;
        }
        const Operation& operation = operations[i];
        benchmark::RegisterBenchmark(std::to_string(i).c_str(), [&operation](
                                                                    benchmark::State& state) {
            operation();  // an expensive neighbour leaves the caches to whoever follows
            for ([[maybe_unused]] const auto turn : state) {
                operation();
            }
        })->Unit(benchmark::kMicrosecond);
    }
    Collector collector(operations.size());
    benchmark::RunSpecifiedBenchmarks(&collector);
    benchmark::ClearRegisteredBenchmarks();

    std::vector<Timing> timings(operations.size());
    for (size_t i = 0; i < operations.size(); ++i) {
        timings[i].microseconds = collector.Median(i);
        timings[i].ratio = timings[i].microseconds / timings[0].microseconds;
    }
    return timings;
}

}  // namespace corvane_bench
