// What a cycle costs beside what it cannot cost less: each operation of the monitor against the raw
// system calls that it needs, and against the libraries that a user would pick instead.
//
//   cycle_bench [--check] [--rounds N] [--threads N] [--directory PATH] [--only NAME]
//               [--reading compatible|strict] [--origins] [--profile]
//
// Both readings in one run, unless one is named: the compatible one first.
//
// --check ends with 1 when a ratio is above its limit, a peer is nearer the floor, or an operation
// takes memory beyond its streams' own. --only runs one row; with --profile nothing but the
// monitor's operation runs, many times, for a profiler to watch. --origins prints the call stack of
// each allocation.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "allocations.h"
#include "interleave.h"
#include "monitor_clock.h"
#include "monitor_physical_util.h"
#include "peers.h"
#include "raw_calls.h"
#include "system_calls.h"
#include "thread_crowd.h"

namespace {

using corvane_bench::Allocations;
using corvane_bench::Interleave;
using corvane_bench::Operation;
using corvane_bench::Peer;
using corvane_bench::PeerOperation;
using corvane_bench::SystemCalls;
using corvane_bench::Timing;
using CorvaneCommon::CMonitorPhysicalUtil;

constexpr uint64_t INTERVAL_SECONDS = 1;

struct Options {
    bool check = false;
    bool origins = false;
    bool profile = false;
    int rounds = 400;
    int threads = 1000;  ///< of the process in the row of that name
    std::string directory = std::filesystem::current_path();  ///< absolute, as hosts register them
    std::string only;
    std::string reading;  ///< empty: both
};

struct Row {
    std::string name;
    double limit;    ///< highest ratio to the floor allowed; 0: none
    bool keeps_map;  ///< takes memory for each thread's sample
    Operation floor;
    Operation monitor;
    PeerOperation Peer::*peer;
};

bool ParseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const bool has_value = i + 1 < argc;
        if (strcmp(argv[i], "--check") == 0) {
            options.check = true;
        } else if (strcmp(argv[i], "--origins") == 0) {
            options.origins = true;
        } else if (strcmp(argv[i], "--profile") == 0) {
            options.profile = true;
        } else if (strcmp(argv[i], "--rounds") == 0 && has_value) {
            options.rounds = std::max(1, atoi(argv[++i]));
        } else if (strcmp(argv[i], "--threads") == 0 && has_value) {
            options.threads = std::max(1, atoi(argv[++i]));
        } else if (strcmp(argv[i], "--directory") == 0 && has_value) {
            options.directory = argv[++i];
        } else if (strcmp(argv[i], "--reading") == 0 && has_value) {
            options.reading = argv[++i];
        } else if (strcmp(argv[i], "--only") == 0 && has_value) {
            options.only = argv[++i];
        } else {
            fprintf(stderr, "unknown option %s\n", argv[i]);
            return false;
        }
    }
    return true;
}

std::string ProcPath(pid_t pid, const char* rest) {
    return "/proc/" + std::to_string(pid) + "/" + rest;
}

/// What a disk's pass needs of the kernel. The compatible reading resolves the directory each time,
/// after it has looked whether it exists, and asks whether the result is a link.
Operation RawDisk(const std::string& directory, bool strict) {
    using corvane_bench::RawRead;
    if (strict) {
        return [] { RawRead("/proc/diskstats"); };
    }
    return [directory, resolved = std::string(realpath(directory.c_str(), nullptr))] {
        corvane_bench::RawExists(directory.c_str());
        corvane_bench::RawRealPath(directory.c_str());
        corvane_bench::RawReadLink(resolved.c_str());
        RawRead("/proc/diskstats");
    };
}

/// The operations as the table lists them; the last is the sum of the others without threads.
std::vector<Row> Rows(CMonitorPhysicalUtil* monitor, const std::string& directory,
                      pid_t many_threads, bool strict) {
    using corvane_bench::RawExists;
    using corvane_bench::RawRead;
    const pid_t own = getpid();
    const auto own_pid = static_cast<uint32_t>(own);
    const auto crowd_pid = static_cast<uint32_t>(many_threads);

    // The compatible reading takes a process's time from the machine's ticks.
    const auto raw_process = [strict](pid_t pid) -> Operation {
        return [strict, folder = ProcPath(pid, ""), stat = ProcPath(pid, "stat")] {
            RawExists(folder.c_str());
            RawRead(stat.c_str());
            if (!strict) {
                RawRead("/proc/stat");
            }
        };
    };
    std::vector<Row> rows;
    rows.push_back({"cpu", 1.1, false, [] { RawRead("/proc/stat"); },
                    [=] { monitor->CalcCPUMonitorInfo(true, nullptr); }, &Peer::cpu});
    rows.push_back({"memory", 1.1, false, [] { RawRead("/proc/meminfo"); },
                    [=] {
                        CorvaneCommon::MemoryInfo memory;
                        monitor->GetMemoryMonitorInfo(&memory, nullptr);
                    },
                    &Peer::memory});
    rows.push_back({"network", 1.1, false, [] { RawRead("/proc/net/dev"); },
                    [=] { monitor->CalcNetworkMonitorInfo(INTERVAL_SECONDS, true, nullptr); },
                    &Peer::network});
    rows.push_back({"disk", 1.15, false, RawDisk(directory, strict),
                    [=] {
                        monitor->CalcDiskIOMonitorInfo(directory.c_str(), INTERVAL_SECONDS, true,
                                                       nullptr);
                    },
                    &Peer::disk});
    rows.push_back({"process", 1.1, false, raw_process(own),
                    [=] {
                        const corvane_bench::FastClock clock;
                        monitor->CalcProcessCPUMonitorInfo(own_pid, nullptr, false);
                    },
                    &Peer::process_cpu});
    rows.push_back({"threads", 1.1, true,
                    [many_threads, process = raw_process(many_threads)] {
                        process();
                        corvane_bench::RawReadThreads(many_threads);
                    },
                    [=] {
                        const corvane_bench::FastClock clock;
                        monitor->CalcProcessCPUMonitorInfo(crowd_pid, nullptr, true);
                    },
                    &Peer::process_threads});
    rows.push_back({"process memory", 1.1, false,
                    [folder = ProcPath(own, ""), status = ProcPath(own, "status")] {
                        RawExists(folder.c_str());
                        RawRead(status.c_str());
                    },
                    [=] {
                        CorvaneCommon::ProcessMemoryInfo memory;
                        monitor->GetProcessMemoryMonitorInfo(&memory, own_pid, nullptr);
                    },
                    &Peer::process_memory});
    std::vector<Row> parts;
    for (const Row& row : rows) {
        if (row.name != "threads") {
            parts.push_back(row);
        }
    }
    rows.push_back({"cycle", 1.1, false,
                    [parts] {
                        for (const Row& part : parts) {
                            part.floor();
                        }
                    },
                    [parts] {
                        for (const Row& part : parts) {
                            part.monitor();
                        }
                    },
                    &Peer::cycle});
    return rows;
}

const char* CallsText(const SystemCalls& calls, char (&text)[64]) {
    if (!calls.known) {
        return "not traced";
    }
    snprintf(text, sizeof(text), "%d/%d/%d", calls.opens, calls.reads, calls.all);
    return text;
}

/// A peer's ratio to the calls that it makes itself: the row's floor, unless it keeps a file open.
double OwnRatio(const PeerOperation& peer, const Timing& timing, int rounds) {
    return peer.floor ? Interleave({peer.floor, peer.run}, rounds)[1].ratio : timing.ratio;
}

/// Prints a row; returns what is wrong with it, or nothing.
std::string RunRow(const Row& row, const std::vector<Peer>& peers, const Options& options) {
    std::vector<Operation> operations = {row.floor, row.monitor};
    for (const Peer& peer : peers) {
        operations.push_back((peer.*row.peer).run);
    }
    const std::vector<Timing> timings = Interleave(operations, options.rounds);
    const Allocations taken = corvane_bench::CountAllocations(row.monitor, options.origins);
    const SystemCalls raw_calls = corvane_bench::CountSystemCalls(row.floor);
    const SystemCalls calls = corvane_bench::CountSystemCalls(row.monitor);

    char limit[16] = "";
    if (row.limit > 0) {
        snprintf(limit, sizeof(limit), "%.2f", row.limit);
    }
    printf("| %-22s | %8.2f | %8.2f | %6.3f | %5s |", row.name.c_str(), timings[0].microseconds,
           timings[1].microseconds, timings[1].ratio, limit);
    std::string fault;
    if (row.limit > 0 && timings[1].ratio > row.limit) {
        fault += " above its limit;";
    }
    for (size_t i = 0; i < peers.size(); ++i) {
        const Timing& timing = timings[i + 2];
        if (!operations[i + 2]) {
            printf(" %11s |", "-");
            continue;
        }
        const double own_ratio = OwnRatio(peers[i].*row.peer, timing, options.rounds);
        char text[32];
        const bool keeps_open = own_ratio != timing.ratio;
        snprintf(text, sizeof(text), keeps_open ? "%.2f (%.2f)" : "%.2f", timing.ratio, own_ratio);
        printf(" %11s |", text);
        if (own_ratio < timings[1].ratio) {
            fault += std::string(" ") + peers[i].name + " is nearer the floor;";
        }
    }
    char raw_text[64];
    char text[64];
    printf(" %4lu | %6lu | %-14s | %-14s |\n", taken.by_new, taken.by_malloc,
           CallsText(calls, text), CallsText(raw_calls, raw_text));
    fflush(stdout);
    const auto streams = static_cast<uint64_t>(calls.opens);
    if (!row.keeps_map && (taken.by_new != 0 || (calls.known && taken.by_malloc > streams))) {
        fault += " takes memory beyond its streams;";
    }
    return fault.empty() ? fault : row.name + ":" + fault;
}

void RunReading(bool strict, const std::vector<Peer>& peers, pid_t many_threads,
                const Options& options, std::vector<std::string>& faults) {
    CMonitorPhysicalUtil* const monitor = CMonitorPhysicalUtil::GetInstance();
    monitor->SetStrictReading(strict, nullptr);
    const char* directory = options.directory.c_str();
    monitor->SetDiskInfo(&directory, 1, nullptr);
    if (monitor->CalcDiskIOMonitorInfo(directory, INTERVAL_SECONDS, true, nullptr) != 0) {
        faults.push_back(options.directory + " is on no disk of /proc/diskstats");
        return;
    }
    for (Row& row : Rows(monitor, options.directory, many_threads, strict)) {
        if (!options.only.empty() && row.name != options.only) {
            continue;
        }
        if (options.profile) {
            Interleave({row.monitor}, options.rounds);
            continue;
        }
        row.name += strict ? ", strict" : "";
        std::string fault = RunRow(row, peers, options);
        if (!fault.empty()) {
            faults.push_back(std::move(fault));
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        return 2;
    }
    const corvane_bench::ThreadCrowd crowd(options.threads);
    const std::vector<Peer> peers = {corvane_bench::Proc2(getpid(), crowd.Pid()),
                                     corvane_bench::Statgrab(getpid(), crowd.Pid())};
    for (const Peer& peer : peers) {
        if (!peer.present) {
            printf("%s: skipped, not installed\n", peer.name);
        }
    }
    printf("CPU time per call in microseconds; ratios are to the floor. Threads: %d.\n\n",
           crowd.Threads());
    printf("| operation              |    floor |  monitor |  ratio | limit |");
    for (const Peer& peer : peers) {
        printf(" %11s |", peer.name);
    }
    printf(" new  | malloc | opens/reads/all | floor's        |\n");
    printf("|---|---|---|---|---|---|---|---|---|---|---|\n");

    std::vector<std::string> faults;
    for (const bool strict : {false, true}) {
        if (options.reading.empty() || (options.reading == "strict") == strict) {
            RunReading(strict, peers, crowd.Pid(), options, faults);
        }
    }
    printf("\n");
    for (const std::string& fault : faults) {
        printf("%s\n", fault.c_str());
    }
    return options.check && !faults.empty() ? 1 : 0;
}
