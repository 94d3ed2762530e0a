// Times several ways to do the same work against each other.
//
// They take turns in short batches of CPU time, many times over. A ratio is taken within each round
// and the median over the rounds: other load on the machine, which lasts longer than a round, meets
// all of them alike.
#pragma once

#include <functional>
#include <vector>

namespace corvane_bench {

using Operation = std::function<void()>;

struct Timing {
    double microseconds = 0;  ///< CPU time per call, median over the rounds
    double ratio = 0;         ///< to the first operation of the same round, median
};

/// One timing per operation. An empty operation is skipped and gives zeros; the first may not be.
std::vector<Timing> Interleave(const std::vector<Operation>& operations, int rounds);

}  // namespace corvane_bench
