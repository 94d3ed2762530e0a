// Every call to the kernel and every allocation that the monitor makes, made to fail one by one.
//
// After a fault the status is a defined one, nothing stays open or allocated, and on a healthy
// kernel the monitor gives what a monitor gives that never met the fault.
#include <pthread.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <optional>
#include <thread>

#include "allocations.h"
#include "host.h"

namespace corvane_test {
namespace {

using CorvaneCommon::CMonitorPhysicalUtil;

const char* PATHS[] = {"/data", "/srv/files"};
const char* NAMES[] = {"eth0", "the name of no interface"};

/// The kernel's texts after `t` seconds of steady load. Once something was unplugged, the last core
/// and the last interface are gone.
KernelFiles FilesAt(uint64_t t, bool unplugged = false) {
    std::vector<Core> cores = {{"cpu0", 40 * t, 60 * t}, {"cpu1", 10 * t, 90 * t}};
    std::string nics = NicLine("eth0", 1000000 * t, 10 * t, 2000000 * t, 20 * t) +
                       NicLine("eth1", 500000 * t, 5 * t, 500000 * t, 5 * t);
    if (!unplugged) {
        cores.push_back({"cpu2", 20 * t, 80 * t});
        nics += NicLine("eth2", 3000000 * t, t, 1000000 * t, t);
    }
    return {{"/proc/stat", StatText(cores)},
            {"/proc/meminfo",
             "MemTotal: 5000 k\nMemFree: 1 k\nBuffers: 1 k\nCached: 1 k\nShmem: 1 k\n"},
            {"/proc/net/dev", nics},
            {"/proc/diskstats", DiskLine("sda", 10 * t, 5 * t, 300 * t) +
                                    DiskLine("sda1", t, 0, t, "8 1") +
                                    DiskLine("sdb", 20 * t, 5 * t, 400 * t, "8 16") +
                                    DiskLine("sdc", 30 * t, 5 * t, 500 * t, "8 32") +
                                    DiskLine("md0", 50 * t, 5 * t, 0, "9 0")},
            {"/proc/mdstat", "md0 : active raid1 sdc[1] sdb[0]\n"},
            {"/etc/mtab", "/dev/md0 /srv ext4 rw 0 0\n/dev/sda1 / ext4 rw 0 0\n"},
            {"/proc/self/mountinfo", "1 0 0:40 / / rw - btrfs /dev/sda1 rw\n"},
            {"/dev/sda1", ""},
            {"/sys/block/sda/sda1/partition", "1\n"},
            {"/data/x", ""},
            {"/srv/files/deep/x", ""},
            {"/proc/1/stat", ProcessStatText(PID, "server", 30 * t, 3 * t)},
            {"/proc/1/status", "VmSize:\t4096 kB\nVmRSS:\t2048 kB\n"},
            {"/proc/1/net/dev", nics},
            {"/proc/1/task/17/stat", ProcessStatText(PID, "server", 5 * t, t)},
            {"/proc/1/task/18/stat", ProcessStatText(PID, "worker", 25 * t, 2 * t)}};
}

/// Fails when a read does; meets a monitor that knows no disk yet; reads what other figures do not
/// need; discovers anew when something was unplugged.
enum Habit { Fails, Registers, GoesOn, Rediscovers };

struct Operation {
    const char* name;
    Habit habit;
    int32_t (*run)(CMonitorPhysicalUtil& m, LogCategory* log, Records& out);
};

// clang-format off
#define OPERATION(habit, call) \
    {#call, habit, []([[maybe_unused]] CMonitorPhysicalUtil& m, [[maybe_unused]] LogCategory* log, \
                      [[maybe_unused]] Records& out) -> int32_t { return m.call; }}
// clang-format on
const Operation OPERATIONS[] = {
    OPERATION(Rediscovers, CalcCPUMonitorInfo(true, log)),
    OPERATION(Rediscovers, CalcCPUMonitorInfoForTinyCycle(true, log)),
    OPERATION(Fails, GetCPUMonitorInfo(&out.core, "cpu1", true, log)),
    OPERATION(GoesOn, CalcProcessCPUMonitorInfo(PID, log, true)),
    OPERATION(GoesOn, CalcProcessCPUMonitorInfoForTinyCycle(PID, log)),
    OPERATION(Fails, GetMemoryMonitorInfo(&out.memory, log)),
    OPERATION(Fails, GetProcessMemoryMonitorInfo(&out.process_memory, PID, log)),
    OPERATION(Rediscovers, CalcNetworkMonitorInfo(1, true, log)),
    OPERATION(Rediscovers, CalcNetworkMonitorInfoForTinyCycle(1, true, log)),
    OPERATION(Fails, GetNetworkMonitorInfo(&out.interface, "eth0", 1, true, log)),
    OPERATION(Rediscovers, CalcProcessNetworkMonitorInfoForTinyCycle(PID, 1, true, log)),
    OPERATION(Fails, GetProcessRawNetworkInfo(out.text, sizeof(out.text), PID, log)),
    OPERATION(Registers, SetDiskInfo(PATHS, 2, log)),
    OPERATION(Fails, GetDiskNameByFileName(out.text, 128, "/srv/files/deep", log)),
    OPERATION(Fails, CalcDiskIOMonitorInfo(PATHS[0], 1, true, log)),
    OPERATION(GoesOn, CalcDiskIOMonitorInfo(PATHS[1], 1, true, log)),
    OPERATION(GoesOn, CalcDiskIOMonitorInfo({PATHS[0], PATHS[1]}, 1, true, log)),
    OPERATION(Fails, GetDiskMonitorInfo(&out.space, PATHS[0], log)),
    OPERATION(GoesOn, SetStrictReading(true, log)),
    OPERATION(GoesOn, SetNetworkInterfaces(NAMES, 2, log)),
};

/// A monitor with baselines at second 1, and the texts that it sees. What comes at second 1 again
/// moves no figure, so it does not matter to later figures whether it failed.
struct Scene : Host {
    Scene(const Operation& measured, bool is_unplugged, bool strict)
        : operation(measured), unplugged(is_unplugged) {
        paths = {PATHS[0], PATHS[1]};
        kernel.status["/srv"].st_dev = makedev(9, 0);
        kernel.status["/dev/sda1"].st_mode = S_IFBLK;
        kernel.status["/dev/sda1"].st_rdev = makedev(8, 1);
        Boot(FilesAt(1));
        kernel.MakeLink("/sys/dev/block/8:1", "../../block/sda/sda1");
        kernel.monotonic_us = 1000000;
        if (strict) {
            m->SetStrictReading(true, nullptr);
        }
        if (operation.habit != Registers) {
            m->SetDiskInfo(PATHS, 2, nullptr);
        }
        for (int pass = 0; pass < 2; ++pass) {
            m->CalcProcessCPUMonitorInfo(PID, nullptr, true);
            m->CalcProcessCPUMonitorInfoForTinyCycle(PID, nullptr);
        }
        kernel.Write(FilesAt(1, unplugged));
    }
    std::string Now() {
        return See([this] { return operation.run(*m, log, out); });
    }
    /// All that there is to see after the next interval, without earlier peaks. A call that made up
    /// for a fault lists disks in another order.
    std::string At(uint64_t time) {
        kernel.Write(FilesAt(time, unplugged));
        kernel.monotonic_us = static_cast<int64_t>(time) * 1000000;
        m->ClearCPUPhasedCacheValue(nullptr);
        m->ClearProcessCPUPhasedCacheValue(nullptr);
        m->ClearNetWorkPhasedCacheValue(nullptr);
        m->ClearDiskIOPhasedcacheValue(nullptr);
        log = nullptr;
        Forget();
        std::string seen = Now();
        const size_t disks = std::min(seen.find("disks"), seen.size());
        return seen.erase(disks, seen.find(';', disks) - disks);
    }

    const Operation& operation;
    const bool unplugged;
};

/// Of a call to the kernel, after some bytes of a file; without one, of an allocation.
struct Fault {
    std::optional<KernelCall> call;
    int error = EIO;
    bool logged = true;
    size_t bytes = 0;
};

/// Makes the n-th call or allocation fail during the operation, if there are as many, and expects
/// of the interval after the next what an undisturbed monitor gives. False when there are fewer.
bool Meet(const Operation& operation, bool unplugged, bool strict, const Fault& fault, int nth,
          const std::string& undisturbed) {
    Scene scene(operation, unplugged, strict);
    scene.log = fault.logged ? scene.log : nullptr;
    scene.kernel.ResetCounts();
    if (fault.call) {
        scene.kernel.Fail(*fault.call, nth, fault.error, fault.bytes);
    }
    int32_t status = 0;
    try {
        allocations_to_failure = fault.call ? 0 : nth;
        status = operation.run(*scene.m, scene.log, scene.out);
    } catch (const std::bad_alloc&) {
        EXPECT_FALSE(fault.call);
    }
    const bool met =
        fault.call ? scene.kernel.Count(*fault.call) >= nth : allocations_to_failure <= 0;
    allocations_to_failure = 0;
    scene.kernel.Heal();
    EXPECT_EQ(scene.kernel.CountOpen(), 0);
    EXPECT_TRUE(status == 0 || StatusName(status) != std::to_string(status)) << status;
    const bool of_reading = fault.call == KernelCall::Open || fault.call == KernelCall::Read;
    if (met && of_reading && (operation.habit == Fails || operation.habit == Rediscovers)) {
        EXPECT_NE(status, 0);
        EXPECT_EQ(scene.records.texts.empty(), !fault.logged);
    }
    scene.At(2);  // at most one rediscovery
    if (scene.inside->network_nic_name.empty() && !strict && operation.habit == Rediscovers) {
        // One that failed. An empty list of interfaces is never found to be incomplete.
        EXPECT_EQ(StatusName(status), "WRONG");
    } else {
        EXPECT_EQ(scene.At(3), undisturbed);
    }
    return met;
}

TEST(Fault, EveryOneOfEveryOperation) {
    std::vector<Fault> faults = {{{}, 0, false}, {KernelCall::Read, EIO, true, 40}};
    for (const KernelCall call : ALL_KERNEL_CALLS) {
        faults.push_back({call});
        faults.push_back({call, ESRCH, false});
    }
    int of_kernel = 0;
    int of_allocator = 0;
    for (int i = 0; i < 4 * static_cast<int>(std::size(OPERATIONS)); ++i) {
        const Operation& operation = OPERATIONS[i / 4];
        const bool unplugged = i % 2 == 1;
        const bool strict = i / 2 % 2 == 1;
        if (unplugged && operation.habit != Rediscovers) {
            continue;
        }
        Scene scene(operation, unplugged, strict);
        scene.Now();
        scene.At(2);
        const std::string undisturbed = scene.At(3);
        for (const Fault& fault : faults) {
            bool met = true;
            for (int nth = 1; met && !testing::Test::HasFailure(); ++nth) {
                SCOPED_TRACE(testing::Message()
                             << operation.name << ", fault " << &fault - &faults[0] << ", number "
                             << nth << ", unplugged " << unplugged << ", strict " << strict);
                const int64_t live = live_allocations;
                met = Meet(operation, unplugged, strict, fault, nth, undisturbed);
                EXPECT_EQ(live_allocations, live);
                (fault.call ? of_kernel : of_allocator) += met ? 1 : 0;
            }
        }
    }
    EXPECT_GT(of_kernel, 100);
    EXPECT_GT(of_allocator, 40);
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
            for (const bool unplugged_or_strict : {false, true}) {
                Scene(operation, unplugged_or_strict, unplugged_or_strict).Now();
            }
        }
    }).join();
}

}  // namespace
}  // namespace corvane_test
