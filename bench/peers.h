// Libraries that a user would pick instead of the monitor, through their public interfaces.
#pragma once

#include <sys/types.h>

#include <vector>

#include "interleave.h"

namespace corvane_bench {

/// What a peer offers for the same figures; empty where it offers nothing.
struct Peer {
    const char* name;
    bool present = false;
    Operation cpu = {};
    Operation memory = {};
    Operation network = {};
    Operation disk = {};
    Operation process_cpu = {};
    Operation process_threads = {};
    Operation process_memory = {};
    Operation cycle = {};  ///< all of these but the threads, where it has every one
};

/// `many_threads` is the process of Peer::process_threads, `own_pid` that of the others.
Peer Statgrab(pid_t own_pid, pid_t many_threads);
Peer Proc2(pid_t own_pid, pid_t many_threads);

}  // namespace corvane_bench
