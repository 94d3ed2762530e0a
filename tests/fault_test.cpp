// Every call to the kernel and every allocation that the monitor makes, made to fail one by one.
//
// After a fault the status is a defined one, nothing stays open or allocated, and on a healthy
// kernel the monitor gives what a monitor gives that never met the fault.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <thread>

#include "capturing_log.h"
#include "fake_kernel.h"
#include "kernel_texts.h"
#include "monitor_test_peer.h"

namespace {

// Of this program's operator new: reached from outside of any class.
std::atomic<int64_t> live_allocations = 0;
std::atomic<int64_t> allocations_to_failure = 0;  // 0: none fails

}  // namespace

void* operator new(size_t size) {
    const bool fails = allocations_to_failure > 0 && !corvane_test::InKernelCall() &&
                       --allocations_to_failure == 0;
    void* const memory = fails ? nullptr : malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++live_allocations;
    return memory;
}

// Not inlined: the compiler would see a free without its malloc.
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    live_allocations -= memory == nullptr ? 0 : 1;
    free(memory);
}

void operator delete(void* memory, size_t /*size*/) noexcept {
    operator delete(memory);
}

// The sanitizers have forms for arrays of their own, which would go past the ones above.
void* operator new[](size_t size) {
    return operator new(size);
}

void operator delete[](void* memory) noexcept {
    operator delete(memory);
}

void operator delete[](void* memory, size_t /*size*/) noexcept {
    operator delete(memory);
}

namespace corvane_test {
namespace {

using namespace CorvaneCommon;

constexpr uint32_t PID = 4711;
const char* PATHS[] = {"/data", "/srv/files"};

bool IsDefined(int32_t status) {
    return status == 0 || status == COMMON_ERR_INVALID_ARGUMENTS ||
           status == COMMON_ERR_LINUX_SYSTEM_CALL_FAIL ||
           status == COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE;
}

/// A descriptor that stayed open moves it up.
int LowestFreeDescriptor() {
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return descriptor;
}

/// The kernel's texts after `t` seconds of steady load. Once something was unplugged, the last core
/// and the last interface are gone.
KernelFiles FilesAt(uint64_t t, bool unplugged = false) {
    std::vector<Core> cores = {{"cpu0", 40 * t, 60 * t}, {"cpu1", 10 * t, 90 * t}};
    if (!unplugged) {
        cores.push_back({"cpu2", 20 * t, 80 * t});
    }
    const std::string interfaces =
        NetDevText({NicLine("eth0", 1000000 * t, 10 * t, 2000000 * t, 20 * t),
                    NicLine("eth1", 500000 * t, 5 * t, 500000 * t, 5 * t),
                    unplugged ? "" : NicLine("eth2", 3000000 * t, t, 1000000 * t, t)});
    return {{"/proc/stat", StatText(cores)},
            {"/proc/meminfo",
             "MemTotal: 1000000 kB\nMemFree: 200000 kB\nBuffers: 50000 kB\nCached: 300000 kB\n"
             "Shmem: 10000 kB\n"},
            {"/proc/net/dev", interfaces},
            {"/proc/diskstats",
             DiskLine("sda", 10 * t, 5 * t, 300 * t) + DiskLine("sdb", 20 * t, 5 * t, 400 * t) +
                 DiskLine("sdc", 30 * t, 5 * t, 500 * t) + DiskLine("md0", 50 * t, 5 * t, 0)},
            {"/proc/mdstat", "Personalities : [raid1]\nmd0 : active raid1 sdc[1] sdb[0]\n"},
            {"/etc/mtab", "/dev/md0 /srv ext4 rw 0 0\n/dev/sda1 / ext4 rw 0 0\n"},
            {"/proc/4711/stat", ProcessStatText(PID, "server", 30 * t, 3 * t)},
            {"/proc/4711/status", "Name:\tserver\nVmSize:\t4096 kB\nVmRSS:\t2048 kB\n"},
            {"/proc/4711/net/dev", interfaces},
            {"/proc/4711/task/4711/stat", ProcessStatText(PID, "server", 5 * t, t)},
            {"/proc/4711/task/4712/stat", ProcessStatText(PID, "worker", 25 * t, 2 * t)}};
}

/// What a host gets of one operation, and statuses and figures of all that the monitor keeps. Has
/// no padding and is compared as bytes.
struct Records {
    std::array<int32_t, 12> statuses = {};  // the operation's own first
    std::array<int32_t, 4> process = {};
    CPUInfoResult cpu[3];
    MemoryInfo memory;
    ProcessMemoryInfo process_memory;
    NetworkInfoResult network[4];
    DiskIOInfoResult disks[2];
    DiskInfoResult space;
    char text[4096] = {};

    bool operator==(const Records& other) const { return memcmp(this, &other, sizeof(other)) == 0; }
};

/// Meets a monitor that knows no disk yet; a thread that could not be read misses one more figure;
/// discovers anew when something was unplugged; measures several threads or disks, each for itself.
enum Habit { None, Registers, SkipsThreads, Rediscovers, GoesOn };

struct Operation {
    const char* name;
    Habit habit;
    int32_t (*run)(CMonitorPhysicalUtil& m, LogCategory* log, uint32_t pid, Records& r);
};

// clang-format off
#define OPERATION(habit, call) \
    {#call, habit, []([[maybe_unused]] CMonitorPhysicalUtil& m, [[maybe_unused]] LogCategory* log, \
                      [[maybe_unused]] uint32_t pid, [[maybe_unused]] Records& r) { return m.call; }}
// clang-format on
const Operation OPERATIONS[] = {
    OPERATION(Rediscovers, CalcCPUMonitorInfo(true, log)),
    OPERATION(Rediscovers, CalcCPUMonitorInfoForTinyCycle(true, log)),
    OPERATION(None, GetCPUMonitorInfo(&r.cpu[0], "cpu1", true, log)),
    OPERATION(SkipsThreads, CalcProcessCPUMonitorInfo(pid, log, true)),
    OPERATION(GoesOn, CalcProcessCPUMonitorInfoForTinyCycle(pid, log)),
    OPERATION(None, GetMemoryMonitorInfo(&r.memory, log)),
    OPERATION(None, GetProcessMemoryMonitorInfo(&r.process_memory, pid, log)),
    OPERATION(Rediscovers, CalcNetworkMonitorInfo(1, true, log)),
    OPERATION(Rediscovers, CalcNetworkMonitorInfoForTinyCycle(1, true, log)),
    OPERATION(None, GetNetworkMonitorInfo(&r.network[0], "eth0", 1, true, log)),
    OPERATION(Rediscovers, CalcProcessNetworkMonitorInfoForTinyCycle(pid, 1, true, log)),
    OPERATION(None, GetProcessRawNetworkInfo(r.text, sizeof(r.text), pid, log)),
    OPERATION(Registers, SetDiskInfo(PATHS, 2, log)),
    OPERATION(None, GetDiskNameByFileName(r.text, 128, "/srv/files/deep", log)),
    OPERATION(None, CalcDiskIOMonitorInfo(PATHS[0], 1, true, log)),
    OPERATION(GoesOn, CalcDiskIOMonitorInfo(PATHS[1], 1, true, log)),
    OPERATION(GoesOn, CalcDiskIOMonitorInfo({PATHS[0], PATHS[1]}, 1, true, log)),
    OPERATION(None, GetDiskMonitorInfo(&r.space, PATHS[0], log)),
    OPERATION(None, IsPIDValid(pid, log) ? 0 : COMMON_ERR_INVALID_ARGUMENTS),
    OPERATION(None, IsFileExist(PATHS[0]) ? 0 : COMMON_ERR_INVALID_ARGUMENTS),
};

Records Run(const Operation& operation, Monitor& monitor, LogCategory* log) {
    Records r;
    CMonitorPhysicalUtil& m = monitor.monitor;
    const auto names = std::make_unique<DiskNameInfoResult>();
    DiskNameInfoResult* target = names.get();
    r.statuses = {operation.run(m, log, PID, r),
                  m.GetCPUMonitorInfo(&r.cpu[1], log),
                  m.GetCPUMonitorInfoForTinyCycle(&r.cpu[2], log),
                  m.GetProcessCPUMonitorInfo(r.process[0], PID, log),
                  m.GetProcessMaxThreadCPUMonitorInfo(r.process[1], PID, log),
                  m.GetProcessCPUMonitorInfoForTinyCycle(r.process[2], r.process[3], PID, log),
                  m.GetNetworkMonitorInfo(&r.network[1], log),
                  m.GetNetworkMonitorInfoForTinyCycle(&r.network[2], log),
                  m.GetProcessNetworkMonitorInfoForTinyCycle(&r.network[3], log),
                  m.GetDiskIOMonitorInfo(&r.disks[0], PATHS[0], log),
                  m.GetDiskIOMonitorInfo(&r.disks[1], PATHS[1], log),
                  m.GetDiskNameInfo(target, log)};
    // A call that made up for a fault lists in another order.
    for (const std::string& name :
         std::set<std::string>(names->disk_name, names->disk_name + names->disk_number)) {
        strcat(strcat(r.text, " "), name.c_str());
    }
    return r;
}

/// A monitor with baselines at second 1, and the texts that it sees. What comes at second 1 again
/// moves no figure, so it does not matter to later figures whether it failed.
struct Scene {
    explicit Scene(const Operation& measured, bool is_unplugged = false)
        : operation(measured), unplugged(is_unplugged), kernel(FilesAt(1)) {
        kernel.MakeFolder("/data");
        kernel.MakeFolder("/srv/files/deep");
        if (operation.habit != Registers) {
            monitor->SetDiskInfo(PATHS, 2, nullptr);
        }
        for (int pass = 0; pass < 2; ++pass) {
            monitor->CalcProcessCPUMonitorInfo(PID, nullptr, true);
            monitor->CalcProcessCPUMonitorInfoForTinyCycle(PID, nullptr);
        }
        kernel.Write(FilesAt(1, unplugged));
    }

    Records Now(LogCategory* log = nullptr) { return Run(operation, monitor, log); }

    /// The operation's outcome over the next interval, without earlier peaks.
    Records At(uint64_t time) {
        kernel.Write(FilesAt(time, unplugged));
        monitor->ClearCPUPhasedCacheValue(nullptr);
        monitor->ClearProcessCPUPhasedCacheValue(nullptr);
        monitor->ClearNetWorkPhasedCacheValue(nullptr);
        monitor->ClearDiskIOPhasedcacheValue(nullptr);
        return Now();
    }

    const Operation& operation;
    const bool unplugged;
    FakeKernel kernel;
    Monitor monitor;
};

/// The outcomes of a monitor that meets no fault, at seconds 2 and 3.
std::vector<Records> Undisturbed(const Operation& operation, bool unplugged) {
    Scene scene(operation, unplugged);
    scene.Now();
    return {scene.At(2), scene.At(3)};
}

/// Of a call to the kernel, after some bytes of a file; without one, of an allocation.
struct Fault {
    std::optional<KernelCall> call;
    int error = EIO;
    bool logged = true;
    size_t bytes = 0;
};

/// What became of a fault.
enum class Met { NotAtAll, Recovered, Emptied };

/// Makes the n-th call or allocation fail during the operation, if there are as many.
Met Meet(const Operation& operation, bool unplugged, const Fault& fault, int nth,
         const std::vector<Records>& undisturbed) {
    Scene scene(operation, unplugged);
    CapturingLog log(LOG_PRIORITY_TRACE);
    const int descriptor = LowestFreeDescriptor();
    int32_t status = 0;
    scene.kernel.ResetCounts();
    if (fault.call) {
        scene.kernel.Fail(*fault.call, nth, fault.error, fault.bytes);
    }
    try {
        allocations_to_failure = fault.call ? 0 : nth;
        status = scene.Now(fault.call && fault.logged ? &log : nullptr).statuses[0];
    } catch (const std::bad_alloc&) {
        EXPECT_FALSE(fault.call);
    }
    const bool met =
        fault.call ? scene.kernel.Count(*fault.call) >= nth : allocations_to_failure <= 0;
    allocations_to_failure = 0;
    scene.kernel.Heal();
    EXPECT_TRUE(IsDefined(status)) << status;
    EXPECT_EQ(LowestFreeDescriptor(), descriptor);
    const bool of_reading = fault.call == KernelCall::Open || fault.call == KernelCall::Read;
    if (met && of_reading && (operation.habit == None || operation.habit == Rediscovers)) {
        EXPECT_NE(status, 0);
        EXPECT_EQ(log.Records().empty(), !fault.logged);
    }

    const Records next = scene.At(2);
    if (scene.monitor.network_nic_name.empty()) {
        // A rediscovery failed. An empty list of interfaces is never found to be incomplete.
        EXPECT_EQ(status, COMMON_ERR_INVALID_ARGUMENTS);
        EXPECT_EQ(next.statuses[0], 0);
        return Met::Emptied;
    }
    if (!(next == undisturbed[0])) {
        if (fault.call && operation.habit == SkipsThreads) {
            EXPECT_EQ(status, 0);
            EXPECT_EQ(next.process[0], undisturbed[0].process[0]);
        } else {
            // At most one rediscovery, which has to say so.
            EXPECT_TRUE(unplugged || !fault.call);
            EXPECT_EQ(next.statuses[0], COMMON_ERR_INVALID_ARGUMENTS);
        }
        EXPECT_EQ(scene.At(3), undisturbed[1]);
    }
    return met ? Met::Recovered : Met::NotAtAll;
}

TEST(Fault, EveryOneOfEveryOperation) {
    std::vector<Fault> faults = {{}, {KernelCall::Read, EIO, true, 40}};
    for (const KernelCall call : ALL_KERNEL_CALLS) {
        faults.push_back({call});
        faults.push_back({call, EMFILE, false});
        faults.push_back({call, ESRCH, false});
    }
    int of_kernel = 0;
    int of_allocator = 0;
    int emptied = 0;
    for (const Operation& operation : OPERATIONS) {
        for (const bool unplugged : {false, true}) {
            const std::vector<Records> undisturbed = Undisturbed(operation, unplugged);
            ASSERT_EQ(undisturbed[0].statuses[0], 0) << operation.name;
            for (const Fault& fault : faults) {
                const bool known = unplugged && operation.habit != Rediscovers;
                Met met = known ? Met::NotAtAll : Met::Recovered;
                for (int nth = 1; met != Met::NotAtAll && !HasFailure(); ++nth) {
                    SCOPED_TRACE(testing::Message()
                                 << operation.name << ", fault " << &fault - &faults[0]
                                 << ", number " << nth << ", unplugged " << unplugged);
                    const int64_t live = live_allocations;
                    met = Meet(operation, unplugged, fault, nth, undisturbed);
                    EXPECT_EQ(live_allocations, live);
                    (fault.call ? of_kernel : of_allocator) += met == Met::NotAtAll ? 0 : 1;
                    emptied += met == Met::Emptied ? 1 : 0;
                }
            }
        }
    }
    EXPECT_GT(of_kernel, 100);
    EXPECT_GT(of_allocator, 100);
    EXPECT_EQ(emptied, 21);  // three operations: opening and reading in three ways, reading on
}

// A log is only written to: with and without one, every operation comes to the same.
TEST(Fault, BrokenTextsComeToTheSameWithoutALog) {
    const auto cut = [](const std::string& text) { return text.substr(0, text.size() / 2); };
    const auto without_numbers = [](std::string text) {
        std::replace_if(
            text.begin(), text.end(), [](char c) { return isdigit(c) != 0; }, 'x');
        return text;
    };
    const auto in_one_line = [](std::string text) {
        std::replace(text.begin(), text.end(), '\n', ' ');
        return text;
    };
    const std::function<std::string(const std::string&)> breaks[] = {
        [](const std::string&) { return ""; }, cut, without_numbers, in_one_line};
    int failed = 0;
    for (const Operation& operation : OPERATIONS) {
        for (const auto& [path, text] : FilesAt(1)) {
            for (const auto& broken : breaks) {
                const auto outcome = [&](LogCategory* log) {
                    Scene scene(operation);
                    scene.kernel.Write(path, broken(text));
                    return scene.Now(log);
                };
                CapturingLog log(LOG_PRIORITY_TRACE);
                const Records logged = outcome(&log);
                EXPECT_EQ(outcome(nullptr), logged) << operation.name << path;
                failed += logged.statuses[0] == 0 ? 0 : 1;
            }
        }
    }
    EXPECT_GT(failed, 50);
}

TEST(Fault, EveryKernelCallOfConstructionLeavesAUsableMonitor) {
    for (const KernelCall call : {KernelCall::Open, KernelCall::Read}) {
        for (const int nth : {1, 2}) {
            FakeKernel kernel(FilesAt(1));
            kernel.Fail(call, nth, EMFILE);
            const int descriptor = LowestFreeDescriptor();
            Monitor monitor;
            EXPECT_EQ(LowestFreeDescriptor(), descriptor);
            kernel.Heal();
            // The first open is the interfaces', the second the cores', which are found again.
            EXPECT_EQ(monitor.network_nic_name.empty(), nth == 1);
            EXPECT_EQ(monitor->CalcCPUMonitorInfo(true, nullptr),
                      nth == 1 ? 0 : COMMON_ERR_INVALID_ARGUMENTS);
            EXPECT_EQ(monitor->CalcCPUMonitorInfo(true, nullptr), 0);
            EXPECT_EQ(monitor->CalcNetworkMonitorInfo(1, true, nullptr), 0);
        }
    }
}

TEST(Fault, EveryProcessOfThisMachine) {
    Monitor monitor;
    CapturingLog log(LOG_PRIORITY_TRACE);
    const int descriptor = LowestFreeDescriptor();
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const auto pid = strtoul(entry.path().filename().c_str(), nullptr, 10);  // else 0
        for (const Operation& operation : OPERATIONS) {
            Records r;
            EXPECT_TRUE(
                IsDefined(operation.run(monitor.monitor, &log, static_cast<uint32_t>(pid), r)))
                << operation.name << pid;
        }
    }
    EXPECT_EQ(LowestFreeDescriptor(), descriptor);
}

// The header promises that 96 KiB are enough, the rest is the test's; who needs more dies.
TEST(Fault, NoOperationOverflowsASmallStack) {
    pthread_attr_t small;
    pthread_attr_init(&small);
#ifdef __SANITIZE_ADDRESS__
    constexpr size_t STACK_LENGTH = 512 * 1024;  // the sanitizer's allocator needs its own
#else
    constexpr size_t STACK_LENGTH = 128 * 1024;
#endif
    pthread_attr_setstacksize(&small, STACK_LENGTH);
    pthread_attr_setguardsize(&small, 1024 * 1024);
    pthread_setattr_default_np(&small);
    std::thread([] {
        for (const Operation& operation : OPERATIONS) {
            Undisturbed(operation, false);
            Undisturbed(operation, true);
        }
    }).join();
}

}  // namespace
}  // namespace corvane_test
