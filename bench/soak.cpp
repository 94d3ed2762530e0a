// Long runs: does the monitor's memory, its open descriptors or its time per cycle grow?
//
// Usage: soak [CYCLES IN MEMORY [CYCLES ON THIS MACHINE'S KERNEL]]
//
// The kernel in memory changes all the time: counters rise and, at each turn of its texts, fall;
// a core, an interface and threads come and go; files vanish. Prints each tenth of a run; exit
// status 1 when the last tenth has more memory or descriptors than the first, or cycles that take
// more than 20 % longer. Time is the processor's, of the fastest batch of a hundred in each tenth,
// so that other work on the machine matters less.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kernel.h"
#include "kernel_texts.h"
#include "monitor_test_peer.h"

namespace {

using corvane_test::Core;
using corvane_test::Kernel;
using Monitor = CorvaneCommon::MonitorPhysicalUtilTestPeer;
using Texts = std::vector<std::pair<std::string, std::string>>;  // by path; empty: no such file

constexpr uint32_t FAKE_PID = 4711;
constexpr int TENTHS = 10;
constexpr uint64_t BATCHES = 100;  // in a tenth
constexpr double LONGER = 1.2;

/// What one moment of the made-up machine looks like.
Texts TextsAt(uint64_t time) {
    const bool plugged = time % 8 != 3;
    const std::string pid = "/proc/" + std::to_string(FAKE_PID);
    std::vector<Core> cores;
    for (uint64_t core = 0; core < (plugged ? 8U : 7U); ++core) {
        cores.push_back({"cpu" + std::to_string(core), (10 + core) * time, 90 * time});
    }
    std::string nets = corvane_test::NetDevText(
        {corvane_test::NicLine("eth0", 1000000 * time, 10 * time, 2000000 * time, 20 * time),
         corvane_test::NicLine("eth1", 500000 * time, 5 * time, 500000 * time, 5 * time)});
    if (plugged) {
        nets += corvane_test::NicLine("bond0", time, time, time, time);
    }
    Texts texts = {
        {"/proc/stat", corvane_test::StatText(cores)},
        {"/proc/meminfo",
         time % 16 == 5
             ? ""
             : "MemTotal: 1000000 kB\nMemFree: 200000 kB\nBuffers: 50000 kB\nCached: 300000 kB\n"
               "Shmem: 10000 kB\n"},
        {"/proc/net/dev", nets},
        {"/proc/diskstats", corvane_test::DiskLine("sda", 10 * time, 5 * time, 300 * time) +
                                corvane_test::DiskLine("sdb", 20 * time, 5 * time, 400 * time) +
                                corvane_test::DiskLine("sdc", 30 * time, 5 * time, 500 * time)},
        {"/proc/mdstat", time % 16 == 7 ? "" : "md0 : active raid1 sdc[1] sdb[0]\n"},
        {"/etc/mtab", "/dev/md0 /srv ext4 rw 0 0\n/dev/sda1 / ext4 rw 0 0\n"},
        {"/srv/present", "yes"},
        {pid + "/stat", corvane_test::ProcessStatText(FAKE_PID, "server", 30 * time, 3 * time)},
        {pid + "/status", "Name:\tserver\nVmSize:\t4096 kB\nVmRSS:\t2048 kB\n"},
        {pid + "/net/dev", nets}};
    for (uint32_t thread = 0; thread < 8; ++thread) {
        const bool lives = (time + thread) % 4 != 0;
        texts.emplace_back(
            pid + "/task/" + std::to_string(FAKE_PID + thread) + "/stat",
            lives ? corvane_test::ProcessStatText(FAKE_PID, "worker", time, time) : "");
    }
    return texts;
}

/// One cycle of every family, as a host that reports each time.
void RunCycle(Monitor& monitor, uint32_t pid) {
    static const auto names = std::make_unique<CorvaneCommon::DiskNameInfoResult>();
    const char* paths[] = {"/", "/srv"};
    CorvaneCommon::CPUInfoResult cpu;
    CorvaneCommon::MemoryInfo memory;
    CorvaneCommon::ProcessMemoryInfo process_memory;
    CorvaneCommon::NetworkInfoResult network;
    CorvaneCommon::DiskIOInfoResult disk;
    CorvaneCommon::DiskInfoResult space;
    CorvaneCommon::DiskNameInfoResult* name_list = names.get();
    int32_t process = 0;
    int32_t thread = 0;

    monitor->SetDiskInfo(paths, 2, nullptr);
    monitor->CalcCPUMonitorInfo(true, nullptr);
    monitor->CalcCPUMonitorInfoForTinyCycle(true, nullptr);
    monitor->CalcProcessCPUMonitorInfo(pid, nullptr, true);
    monitor->CalcProcessCPUMonitorInfoForTinyCycle(pid, nullptr);
    monitor->CalcNetworkMonitorInfo(1, true, nullptr);
    monitor->CalcNetworkMonitorInfoForTinyCycle(1, true, nullptr);
    monitor->CalcProcessNetworkMonitorInfoForTinyCycle(pid, 1, true, nullptr);
    monitor->CalcDiskIOMonitorInfo({paths[0], paths[1]}, 1, true, nullptr);

    monitor->GetCPUMonitorInfo(&cpu, nullptr);
    monitor->GetCPUMonitorInfo(&cpu, "cpu", true, nullptr);
    monitor->GetProcessCPUMonitorInfo(process, pid, nullptr);
    monitor->GetProcessCPUMonitorInfoForTinyCycle(process, thread, pid, nullptr);
    monitor->GetMemoryMonitorInfo(&memory, nullptr);
    monitor->GetProcessMemoryMonitorInfo(&process_memory, pid, nullptr);
    monitor->GetNetworkMonitorInfo(&network, nullptr);
    monitor->GetNetworkMonitorInfo(&network, "eth0", 1, true, nullptr);
    monitor->GetDiskNameInfo(name_list, nullptr);
    monitor->GetDiskIOMonitorInfo(&disk, paths[0], nullptr);
    monitor->GetDiskMonitorInfo(&space, paths[0], nullptr);

    monitor->ClearCPUPhasedCacheValue(nullptr);
    monitor->ClearProcessCPUPhasedCacheValue(nullptr);
    monitor->ClearNetWorkPhasedCacheValue(nullptr);
    monitor->ClearProcessNetWorkPhasedCacheValueForTinyCycle(nullptr);
    monitor->ClearDiskIOPhasedcacheValue(nullptr);
}

/// Not through fopen: the kernel in memory has no such file.
uint64_t ResidentKiB() {
    constexpr uint64_t BYTES_PER_KIB = 1024;
    char text[128] = {};
    const int descriptor = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
    const ssize_t length = read(descriptor, text, sizeof(text) - 1);
    close(descriptor);
    char* rest = text;
    strtoul(text, &rest, 10);
    const uint64_t pages = length > 0 ? strtoul(rest, nullptr, 10) : 0;
    return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / BYTES_PER_KIB;
}

int CountDescriptors() {
    constexpr int MAX_DESCRIPTOR = 1024;
    int open = 0;
    for (int descriptor = 0; descriptor < MAX_DESCRIPTOR; ++descriptor) {
        open += fcntl(descriptor, F_GETFD) == -1 ? 0 : 1;
    }
    return open;
}

uint64_t ProcessorNanoseconds() {
    constexpr uint64_t NANOSECONDS_PER_SECOND = 1000000000;
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<uint64_t>(now.tv_sec) * NANOSECONDS_PER_SECOND +
           static_cast<uint64_t>(now.tv_nsec);
}

struct Tenth {
    uint64_t resident_kib;
    int descriptors;
    uint64_t nanoseconds;  // per cycle
};

/// Runs and prints the tenths; true when nothing grew.
template <typename Cycle>
bool Soak(const char* kernel, uint64_t cycles, const Cycle& cycle) {
    printf("%s, %lu cycles\ntenth  resident KiB  descriptors  ns per cycle\n", kernel, cycles);
    const uint64_t length = cycles / TENTHS / BATCHES;
    if (length == 0) {
        return true;
    }
    Tenth first = {};
    Tenth last = {};
    for (int tenth = 1; tenth <= TENTHS; ++tenth) {
        last = {0, 0, UINT64_MAX};
        for (uint64_t batch = 0; batch < BATCHES; ++batch) {
            const uint64_t start = ProcessorNanoseconds();
            for (uint64_t i = 0; i < length; ++i) {
                cycle();
            }
            last.nanoseconds =
                std::min(last.nanoseconds, (ProcessorNanoseconds() - start) / length);
        }
        last.resident_kib = ResidentKiB();
        last.descriptors = CountDescriptors();
        printf("%5d  %12lu  %11d  %12lu\n", tenth, last.resident_kib, last.descriptors,
               last.nanoseconds);
        fflush(stdout);
        if (tenth == 1) {
            first = last;
        }
    }
    return last.resident_kib <= first.resident_kib && last.descriptors <= first.descriptors &&
           static_cast<double>(last.nanoseconds) <= LONGER * static_cast<double>(first.nanoseconds);
}

bool SoakInMemory(uint64_t cycles) {
    constexpr uint64_t MOMENTS = 64;
    std::vector<Texts> moments;
    for (uint64_t time = 1; time <= MOMENTS; ++time) {
        moments.push_back(TextsAt(time));
    }
    Kernel kernel;
    Monitor monitor;
    uint64_t moment = 0;
    return Soak("kernel in memory", cycles, [&] {
        for (const auto& [path, text] : moments[moment++ % MOMENTS]) {
            if (text.empty()) {
                kernel.Remove(path);
            } else {
                kernel.Write(path, text);
            }
        }
        RunCycle(monitor, FAKE_PID);
    });
}

bool SoakOnThisMachine(uint64_t cycles) {
    Monitor monitor;
    const auto pid = static_cast<uint32_t>(getpid());
    return Soak("this machine's kernel", cycles, [&] { RunCycle(monitor, pid); });
}

}  // namespace

int main(int argument_count, char** arguments) {
    constexpr uint64_t CYCLES_IN_MEMORY = 1000000;
    constexpr uint64_t CYCLES_ON_THIS_MACHINE = 100000;
    const auto count = [&](int index, uint64_t otherwise) {
        return index < argument_count ? strtoul(arguments[index], nullptr, 10) : otherwise;
    };
    const bool level_in_memory = SoakInMemory(count(1, CYCLES_IN_MEMORY));
    const bool level_here = SoakOnThisMachine(count(2, CYCLES_ON_THIS_MACHINE));
    puts(level_in_memory && level_here ? "level" : "GROWN");
    return level_in_memory && level_here ? 0 : 1;
}
