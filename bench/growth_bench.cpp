// How an operation's cost grows with the machine, on made-up kernel files of growing size.
//
//   growth_bench [--check] [--rounds N]
//
// "own" is the monitor's part: its time less that of reading the same files through the same calls
// (which here pass through the stand-in kernel). --check ends with 1 when the whole time of a
// table's last step rises more than 1.75 times as much a unit as in the step before; a cost that
// grows with the square of the machine would make it 2.1 and more. "own" is not checked: for
// threads it is a small difference of two large times.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "interleave.h"
#include "kernel.h"
#include "kernel_texts.h"
#include "monitor_physical_util.h"
#include "monitor_test_peer.h"

namespace {

using corvane_bench::Interleave;
using corvane_bench::Operation;
using corvane_bench::Timing;
using corvane_test::Kernel;
using corvane_test::KernelFiles;
using corvane_test::Monitor;

constexpr uint32_t PID = 1234;
constexpr uint64_t INTERVAL_SECONDS = 1;
constexpr double STEEPEST = 1.75;
constexpr double NO_GROWTH = 0.01;  // microseconds a unit: a slope below it is noise

/// A file read as the monitor reads it, and not looked at.
void ReadOnly(const std::string& path) {
    static char buffer[40960];
    FILE* const stream = fopen(path.c_str(), "r");
    if (stream == nullptr) {
        return;
    }
    setvbuf(stream, nullptr, _IONBF, 0);
    [[maybe_unused]] const size_t ignored = fread(buffer, 1, sizeof(buffer), stream);
    fclose(stream);
}

std::string RepeatedLines(int count, const std::function<std::string(int)>& line) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += line(i);
    }
    return text;
}

/// One machine of a family: what it holds, the operation, and the same files merely read.
struct Machine {
    KernelFiles files;
    std::function<void(Monitor&)> prepare;
    std::function<bool(Monitor&)> operation;  ///< false: it failed
    Operation read_only;
};

struct Family {
    const char* title;
    const char* unit;
    std::vector<int> sizes;
    std::function<Machine(int)> machine;
};

void Nothing(Monitor& /*monitor*/) {}

Machine CoreMachine(int cores) {
    const auto line = [](int core) {
        // As wide as the figures of a machine that has run for a month.
        return "cpu" + std::to_string(core) +
               " 71234567 12345 9123456 98123456 51234 0 81234 0 0 0\n";
    };
    const std::string text = "cpu  1 0 0 1 0 0 0 0 0 0\n" + RepeatedLines(cores, line) + "intr 1\n";
    return {{{"/proc/stat", text}},
            Nothing,
            [](Monitor& monitor) { return monitor->CalcCPUMonitorInfo(true, nullptr) == 0; },
            [] { ReadOnly("/proc/stat"); }};
}

Machine InterfaceMachine(int interfaces) {
    const auto line = [](int interface) {
        return corvane_test::NicLine("eth" + std::to_string(interface), 123456789012, 123456789,
                                     210987654321, 987654321);
    };
    return {{{"/proc/net/dev", corvane_test::NetDevText({RepeatedLines(interfaces, line)})}},
            Nothing,
            [](Monitor& monitor) {
                return monitor->CalcNetworkMonitorInfo(INTERVAL_SECONDS, true, nullptr) == 0;
            },
            [] { ReadOnly("/proc/net/dev"); }};
}

/// Names as the kernel gives them, sda to sdzz.
std::string DiskName(int disk) {
    constexpr int LETTERS = 26;
    const std::string last(1, static_cast<char>('a' + disk % LETTERS));
    return "sd" + (disk < LETTERS
                       ? last
                       : std::string(1, static_cast<char>('a' + disk / LETTERS - 1)) + last);
}

/// Disks with one mount point each; those of the last `measured` disks are measured.
Machine DiskMachine(int disks, int measured) {
    const auto disk_line = [](int disk) {
        return corvane_test::DiskLine(DiskName(disk), 12345678, 87654321, 1234567);
    };
    KernelFiles files = {{"/proc/diskstats", RepeatedLines(disks, disk_line)},
                         {"/etc/mtab", "/dev/root / ext4 rw 0 0\n"}};
    const auto folders = std::make_shared<std::vector<std::string>>();
    for (int disk = disks - measured; disk < disks; ++disk) {
        const std::string folder = "/data/" + DiskName(disk);
        files["/etc/mtab"] += "/dev/" + DiskName(disk) + " " + folder + " ext4 rw 0 0\n";
        files[folder + "/present"] = "";
        folders->push_back(folder);
    }
    std::vector<const char*> paths;
    for (const std::string& folder : *folders) {
        paths.push_back(folder.c_str());
    }
    return {files,
            [folders, paths](Monitor& monitor) mutable {
                monitor->SetDiskInfo(paths.data(), static_cast<uint32_t>(paths.size()), nullptr);
            },
            [folders, paths](Monitor& monitor) {
                return monitor->CalcDiskIOMonitorInfo(paths, INTERVAL_SECONDS, true, nullptr) == 0;
            },
            [measured] {
                for (int i = 0; i < measured; ++i) {
                    ReadOnly("/proc/diskstats");
                }
            }};
}

Machine ThreadMachine(int threads) {
    const std::string folder = "/proc/" + std::to_string(PID);
    const std::string stat = corvane_test::ProcessStatText(PID, "server", 123456, 12345);
    KernelFiles files = {{"/proc/stat", corvane_test::StatText({{"cpu0", 100, 100}})},
                         {folder + "/stat", stat}};
    std::vector<std::string> paths = {"/proc/stat", folder + "/stat"};
    for (int thread = 0; thread < threads; ++thread) {
        paths.push_back(folder + "/task/" + std::to_string(PID + static_cast<uint32_t>(thread)) +
                        "/stat");
        files[paths.back()] = stat;
    }
    return {files, Nothing,
            [](Monitor& monitor) {
                return monitor->CalcProcessCPUMonitorInfo(PID, nullptr, true) == 0;
            },
            [paths] {
                for (const std::string& path : paths) {
                    ReadOnly(path);
                }
            }};
}

struct Cost {
    double all = 0;  ///< microseconds per call
    double own = 0;  ///< without the reading
};

/// False when the operation fails on this machine.
bool MeasureMachine(const Machine& machine, int rounds, Cost& cost) {
    const Kernel kernel(machine.files);
    Monitor monitor;
    machine.prepare(monitor);
    if (!machine.operation(monitor)) {
        return false;
    }
    const std::vector<Timing> timings =
        Interleave({machine.read_only, [&] { machine.operation(monitor); }}, rounds);
    cost = {timings[1].microseconds, timings[1].microseconds - timings[0].microseconds};
    return true;
}

/// Prints a table; whether its last step is no steeper than it may be.
bool RunFamily(const Family& family, int rounds) {
    // All sizes in turn, several times over, and the least of each: a slow spell of the machine
    // then meets no size alone.
    constexpr int PASSES = 5;
    std::vector<Cost> costs(family.sizes.size());
    for (int pass = 0; pass < PASSES; ++pass) {
        for (size_t i = 0; i < costs.size(); ++i) {
            Cost cost;
            if (!MeasureMachine(family.machine(family.sizes[i]), rounds, cost)) {
                printf("\n%s: failed at %d\n", family.title, family.sizes[i]);
                return false;
            }
            costs[i].all = pass == 0 ? cost.all : std::min(costs[i].all, cost.all);
            costs[i].own = pass == 0 ? cost.own : std::min(costs[i].own, cost.own);
        }
    }
    printf("\n| %s | monitor | own | own ns per %s |\n|---|---|---|---|\n", family.title,
           family.unit);
    for (size_t i = 0; i < costs.size(); ++i) {
        printf("| %d | %.1f | %.1f | %.0f |\n", family.sizes[i], costs[i].all, costs[i].own,
               std::max(costs[i].own, 0.0) * 1000 / family.sizes[i]);
    }
    fflush(stdout);
    const auto slope = [&](size_t i) {
        return (costs[i].all - costs[i - 1].all) / (family.sizes[i] - family.sizes[i - 1]);
    };
    const size_t last = costs.size() - 1;
    const bool linear = slope(last) <= STEEPEST * std::max(slope(last - 1), NO_GROWTH);
    if (!linear) {
        printf("steeper at the end than before\n");
    }
    return linear;
}

}  // namespace

int main(int argc, char** argv) {
    bool check = false;
    int rounds = 30;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--check") == 0) {
            check = true;
        } else if (strcmp(argv[i], "--rounds") == 0 && i + 1 < argc) {
            rounds = std::max(1, atoi(argv[++i]));
        } else {
            fprintf(stderr, "unknown option %s\n", argv[i]);
            return 2;
        }
    }
    const std::vector<Family> families = {
        {"cores", "core", {1, 8, 128, 300, 600}, CoreMachine},
        {"interfaces", "interface", {1, 10, 100, 300, 500}, InterfaceMachine},
        {"disks, one directory",
         "disk",
         {1, 20, 128, 300, 500},
         [](int disks) { return DiskMachine(disks, 1); }},
        {"directories, 128 disks",
         "directory",
         {1, 20, 64, 128},
         [](int directories) { return DiskMachine(128, directories); }},
        {"threads", "thread", {1, 10, 1000, 2500, 5000}, ThreadMachine},
    };
    Interleave({[] {}}, 1);  // Google Benchmark looks at the machine once: at the real one
    printf("CPU time per call in microseconds, on made-up files.\n");
    bool linear = true;
    for (const Family& family : families) {
        linear = RunFamily(family, rounds) && linear;
    }
    return check && !linear ? 1 : 0;
}
