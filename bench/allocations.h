// Counts what this program takes from the heap.
#pragma once

#include <cstdint>

#include "interleave.h"

namespace corvane_bench {

struct Allocations {
    uint64_t by_new = 0;     ///< operator new: C++ containers and strings
    uint64_t by_malloc = 0;  ///< malloc and its kin: the C library's own, one a stream
};

/// What one call takes. With `print_origins` each one's call stack goes to standard error.
Allocations CountAllocations(const Operation& operation, bool print_origins = false);

}  // namespace corvane_bench
