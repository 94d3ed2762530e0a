// Libraries that a user would pick instead of the monitor, through their public interfaces.
#pragma once

#include <sys/types.h>

#include <vector>

#include "interleave.h"

namespace corvane_bench {

/// What a peer offers for one row; empty where it offers nothing.
struct PeerOperation {
    Operation run = {};
    Operation floor = {};  ///< the system calls it makes, where it keeps a file open; else empty
};

/// What a peer offers for the same figures.
struct Peer {
    const char* name;
    bool present = false;
    PeerOperation cpu = {};
    PeerOperation memory = {};
    PeerOperation network = {};
    PeerOperation disk = {};
    PeerOperation process_cpu = {};
    PeerOperation process_threads = {};
    PeerOperation process_memory = {};
    PeerOperation cycle = {};  ///< all of these but the threads, where it has every one
};

/// `many_threads` is the process of Peer::process_threads, `own_pid` that of the others.
Peer Statgrab(pid_t own_pid, pid_t many_threads);
Peer Proc2(pid_t own_pid, pid_t many_threads);

}  // namespace corvane_bench
