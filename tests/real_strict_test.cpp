// The strict reading on this machine's own kernel, where it lets us make what is to be measured: in
// namespaces of a child's own, so that nothing is left behind.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>

#include "monitor_test_peer.h"

namespace corvane_test {
namespace {

using namespace CorvaneCommon;

constexpr int NOT_HERE = 77;

/// Ends a child whose machine does not let it do something.
void Need(bool allowed) {
    if (!allowed) {
        _exit(testing::Test::HasFailure() ? 1 : NOT_HERE);
    }
}

bool Succeeds(const std::string& command) {
    return system(("exec >/dev/null 2>&1; " + command).c_str()) == 0;
}

/// Runs a test in a child with namespaces of its own; skips where this machine does not let it.
void Apart(int namespaces, const std::function<void()>& test) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        Need(unshare(namespaces | CLONE_NEWNS) == 0 &&
             mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
        test();
        Need(!testing::Test::IsSkipped());
        fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == NOT_HERE) {
        GTEST_SKIP() << "this machine does not allow it";
    }
    EXPECT_EQ(status, 0);
}

struct StrictMonitor : Monitor {
    StrictMonitor() { monitor.SetStrictReading(true, nullptr); }
};

TEST(RealStrict, AnInterfaceOfAnyName) {
    Apart(CLONE_NEWNET, [] {
        Need(
            Succeeds("ip link add ens9 type veth peer name ens10 && ip link set ens10 up && "
                     "ip link set ens9 up && ip addr add 10.99.0.1/24 dev ens9 && "
                     "ip neigh add 10.99.0.2 lladdr 02:00:00:00:00:01 dev ens9"));
        StrictMonitor monitor;
        Need(Succeeds("bash -c 'for i in $(seq 100); do echo >/dev/udp/10.99.0.2/9; done'"));
        EXPECT_EQ(monitor->CalcNetworkMonitorInfo(1, true, nullptr), 0);
        std::vector<NetworkInterfaceInfo> interfaces;
        monitor->GetNetworkInterfaceInfo(interfaces, nullptr);
        EXPECT_EQ(interfaces.size(), 2U);
        for (const NetworkInterfaceInfo& info : interfaces) {
            const bool sends = info.nic_name == std::string("ens9");
            EXPECT_GE(sends ? info.output_packets : info.input_packets, 100U) << info.nic_name;
        }
    });
}

TEST(RealStrict, DirectoriesOnEveryFileSystem) {
    Apart(0, [] {
        Need(mount("none", "/mnt", "tmpfs", 0, nullptr) == 0);
        const struct {
            const char *path, *make, *disk;
        } cases[] = {
            {"/mnt/a b", "truncate -s 16M 1 && mkfs.ext4 -q 1 && mount -o loop 1 'a b'", "loop"},
            {"/mnt/btrfs", "truncate -s 128M 2 && mkfs.btrfs -q 2 && mount -o loop 2 btrfs",
             "loop"},
            {"/mnt/btrfs/deep", "mountpoint btrfs", "loop"},
            {"/mnt/overlay",
             "mkdir u w && mount -t overlay -o lowerdir=/usr,upperdir=u,workdir=w x overlay", ""},
            {"/mnt", "true", ""},
            {"/proc", "true", ""},
            // Goes with its last user. Arrays are left to the made-up machines.
            {"/mnt/dm",
             "truncate -s 16M 3 && mkfs.ext4 -q 3 && l=$(losetup -f --show 3) && trap 'losetup -d "
             "$l' EXIT && dmsetup create corvane --table \"0 32768 linear $l 0\" && mount "
             "/dev/mapper/corvane dm; dmsetup remove --deferred corvane; mountpoint dm",
             "dm-"},
        };
        for (const auto& c : cases) {
            if (!Succeeds(std::string("mkdir -p '") + c.path + "' && cd /mnt && " + c.make)) {
                printf("left out, this machine cannot make it: %s\n", c.path);
                continue;
            }
            const char* path = c.path;
            const bool on_disk = c.disk[0] != '\0';
            const int32_t expected = on_disk ? 0 : COMMON_ERR_NO_BLOCK_DEVICE;
            char disk[MONITOR_NAME_LENGTH] = {};
            DiskIOInfoResult result;
            StrictMonitor monitor;
            EXPECT_EQ(monitor->SetDiskInfo(&path, 1, nullptr), 0);
            Need(!on_disk || Succeeds(std::string("dd if=/dev/zero of='") + path +
                                      "/x' bs=4k count=50 oflag=sync"));
            EXPECT_EQ(monitor->GetDiskNameByFileName(disk, sizeof(disk), path, nullptr), expected);
            EXPECT_EQ(monitor->CalcDiskIOMonitorInfo(path, 1, true, nullptr), expected);
            monitor->GetDiskIOMonitorInfo(&result, path, nullptr);
            EXPECT_EQ(std::string(disk).substr(0, strlen(c.disk)), c.disk) << path;
            EXPECT_EQ(result.disk_iops >= 50, on_disk) << path << " " << result.disk_iops;
        }
    });
}

TEST(RealStrict, ACoreThatGoesAndComesBack) {
    const auto plug = [](const char* state) {
        std::ofstream stream("/sys/devices/system/cpu/cpu1/online");
        return static_cast<bool>(stream << state << std::flush);
    };
    Apart(0, [&] {
        StrictMonitor monitor;
        for (const char* const state : {"0", "1", "1"}) {
            Need(plug(state));
            usleep(50000);
            EXPECT_EQ(monitor->CalcCPUMonitorInfo(true, nullptr), 0);
            CPUInfoResult cpu;
            monitor->GetCPUMonitorInfo(&cpu, nullptr);
            EXPECT_EQ(cpu.cpu_core_num, static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
        }
    });
    plug("1");
}

TEST(RealStrict, APidThatIsUsedAgainByANameWithABlank) {
    Apart(CLONE_NEWPID, [] {
        Apart(0, [] {  // in the new namespace
            Need(mount("proc", "/proc", "proc", 0, nullptr) == 0);
            StrictMonitor monitor;
            int32_t process = 0;
            int32_t thread = 0;
            for (const int32_t status : {COMMON_ERR_INVALID_ARGUMENTS, 0,  // measured by the second
                                         COMMON_ERR_INVALID_ARGUMENTS, 0}) {
                static pid_t child = 0;
                if (status != 0) {
                    std::ofstream("/proc/sys/kernel/ns_last_pid") << "99" << std::flush;
                    child = fork();
                    for (; child == 0; prctl(PR_SET_NAME, "GC Thread#0")) {
                    }
                    Need(child == 100);
                }
                usleep(200000);
                EXPECT_EQ(monitor->CalcProcessCPUMonitorInfo(100, nullptr, true), 0);
                EXPECT_EQ(monitor->GetProcessCPUMonitorInfo(process, 100, nullptr), status);
                EXPECT_EQ(monitor->GetProcessMaxThreadCPUMonitorInfo(thread, 100, nullptr), status);
                EXPECT_EQ(process > 0, status == 0);
                EXPECT_EQ(thread > 0, status == 0);
                if (status == 0) {
                    kill(child, SIGKILL);
                    waitpid(child, nullptr, 0);
                }
            }
        });
    });
}

}  // namespace
}  // namespace corvane_test
