// libstatgrab. It lists all processes, never one; there is no call for threads.
#include "peers.h"

#ifdef CORVANE_BENCH_STATGRAB

#include <statgrab.h>

namespace corvane_bench {

Peer Statgrab(pid_t /*own_pid*/, pid_t /*many_threads*/) {
    Peer peer = {"libstatgrab"};
    peer.present = sg_init(1) == SG_ERROR_NONE;
    if (!peer.present) {
        return peer;
    }
    peer.cpu = {[] { sg_get_cpu_percents_of(sg_new_diff_cpu_percent, nullptr); }};
    peer.memory = {[] { sg_get_mem_stats(nullptr); }};
    peer.network = {[] { sg_get_network_io_stats_diff(nullptr); }};
    peer.disk = {[] { sg_get_disk_io_stats_diff(nullptr); }};
    peer.process_cpu = {[] {
        sg_get_process_stats(nullptr);
        sg_get_cpu_percents_of(sg_new_diff_cpu_percent, nullptr);
    }};
    peer.process_memory = {[] { sg_get_process_stats(nullptr); }};
    peer.cycle = {[peer] {
        peer.cpu.run();
        peer.memory.run();
        peer.network.run();
        peer.disk.run();
        sg_get_process_stats(nullptr);
    }};
    return peer;
}

}  // namespace corvane_bench

#else

namespace corvane_bench {

Peer Statgrab(pid_t /*own_pid*/, pid_t /*many_threads*/) {
    return {"libstatgrab"};
}

}  // namespace corvane_bench

#endif
