// Counts the system calls of one operation, in a child that this process traces.
#pragma once

#include "interleave.h"

namespace corvane_bench {

struct SystemCalls {
    bool known = false;  ///< false where the machine does not let a process trace its child
    int opens = 0;
    int reads = 0;
    int all = 0;
};

SystemCalls CountSystemCalls(const Operation& operation);

}  // namespace corvane_bench
