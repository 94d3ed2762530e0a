// Times several ways to do the same work against each other, on Google Benchmark.
//
// They take turns in short batches of CPU time in random order, many times over, and the figure of
// each is the median of its batches: other load on the machine, which lasts longer than a batch,
// meets all of them alike.
#pragma once

#include <functional>
#include <vector>

namespace corvane_bench {

using Operation = std::function<void()>;

struct Timing {
    double microseconds = 0;  ///< CPU time per call, median over the batches
    double ratio = 0;         ///< to the first operation
};

/// One timing per operation. An empty operation is skipped and gives zeros; the first may not be.
std::vector<Timing> Interleave(const std::vector<Operation>& operations, int rounds);

}  // namespace corvane_bench
