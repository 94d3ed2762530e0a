// libproc2 of procps. It keeps the files of the machine open between calls, so that a sample costs
// no open and no close. There is no call for the network.
#include <cstddef>

#include "peers.h"
#include "raw_calls.h"

#ifdef CORVANE_BENCH_PROC2

#include <libproc2/diskstats.h>
#include <libproc2/meminfo.h>
#include <libproc2/pids.h>
#include <libproc2/stat.h>

namespace corvane_bench {

namespace {

template <typename T, size_t N>
constexpr int Size(const T (&/*items*/)[N]) {
    return static_cast<int>(N);
}

stat_item g_cpu_items[] = {STAT_TIC_SUM_DELTA_BUSY, STAT_TIC_SUM_DELTA_TOTAL};
meminfo_item g_memory_items[] = {MEMINFO_MEM_TOTAL, MEMINFO_MEM_USED};
diskstats_item g_disk_items[] = {DISKSTATS_NAME, DISKSTATS_DELTA_READS, DISKSTATS_DELTA_WRITES,
                                 DISKSTATS_IO_TIME};
pids_item g_process_items[] = {PIDS_TICS_ALL_C};
pids_item g_process_memory_items[] = {PIDS_VM_SIZE, PIDS_VM_RSS};

Operation SelectProcess(pids_item* items, int item_count, pid_t pid, pids_select_type which) {
    pids_info* info = nullptr;
    if (procps_pids_new(&info, items, item_count) < 0) {
        return {};
    }
    return [info, which, pid = static_cast<unsigned>(pid)]() mutable {
        procps_pids_select(info, &pid, 1, which);
    };
}

}  // namespace

Peer Proc2(pid_t own_pid, pid_t many_threads) {
    Peer peer = {"libproc2"};
    stat_info* cpu = nullptr;
    meminfo_info* memory = nullptr;
    diskstats_info* disk = nullptr;
    const Operation own_cpu =
        SelectProcess(g_process_items, Size(g_process_items), own_pid, PIDS_SELECT_PID);
    const Operation threads = SelectProcess(g_process_items, Size(g_process_items), many_threads,
                                            PIDS_SELECT_PID_THREADS);
    peer.process_memory = {SelectProcess(g_process_memory_items, Size(g_process_memory_items),
                                         own_pid, PIDS_SELECT_PID)};
    peer.present = procps_stat_new(&cpu) == 0 && procps_meminfo_new(&memory) == 0 &&
                   procps_diskstats_new(&disk) == 0 && own_cpu && threads &&
                   peer.process_memory.run;
    if (!peer.present) {
        return {"libproc2"};
    }
    peer.cpu = {
        [cpu] { procps_stat_reap(cpu, STAT_REAP_CPUS_ONLY, g_cpu_items, Size(g_cpu_items)); },
        RawReread("/proc/stat", 2)};
    peer.memory = {
        [memory] { procps_meminfo_select(memory, g_memory_items, Size(g_memory_items)); },
        RawReread("/proc/meminfo", 1)};
    peer.disk = {[disk] { procps_diskstats_reap(disk, g_disk_items, Size(g_disk_items)); },
                 RawReread("/proc/diskstats", 2)};
    // A share of the machine's time needs the machine's ticks as well.
    const Operation machine = [cpu] { procps_stat_select(cpu, g_cpu_items, Size(g_cpu_items)); };
    peer.process_cpu = {[own_cpu, machine] {
        own_cpu();
        machine();
    }};
    peer.process_threads = {[threads, machine] {
        threads();
        machine();
    }};
    return peer;
}

}  // namespace corvane_bench

#else

namespace corvane_bench {

Peer Proc2(pid_t /*own_pid*/, pid_t /*many_threads*/) {
    return {"libproc2"};
}

}  // namespace corvane_bench

#endif
