// The strict reading of disks on this machine's own kernel: file systems made for the purpose, in a
// child's own mounts, so that nothing is left behind.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "monitor_test_peer.h"

namespace corvane_test {
namespace {

using namespace CorvaneCommon;

constexpr int NOT_HERE = 77;

bool Succeeds(const std::string& command) {
    return system(("exec >/dev/null 2>&1; " + command).c_str()) == 0;
}

/// Expects figures of 50 writes to a directory whose disk's name begins like this; "": none.
void Measure(const char* path, const std::string& disk) {
    SCOPED_TRACE(path);
    const int32_t expected = disk.empty() ? COMMON_ERR_NO_BLOCK_DEVICE : 0;
    char name[MONITOR_NAME_LENGTH] = {};
    DiskIOInfoResult result;
    Monitor monitor;
    monitor->SetStrictReading(true, nullptr);
    EXPECT_EQ(monitor->SetDiskInfo(&path, 1, nullptr), 0);
    const std::string file = std::string("of='") + path + "/x'";
    if (!disk.empty() && !Succeeds("dd if=/dev/zero " + file + " bs=4k count=50 oflag=sync")) {
        _exit(NOT_HERE);
    }
    EXPECT_EQ(monitor->GetDiskNameByFileName(name, sizeof(name), path, nullptr), expected);
    EXPECT_EQ(monitor->CalcDiskIOMonitorInfo(path, 1, true, nullptr), expected);
    monitor->GetDiskIOMonitorInfo(&result, path, nullptr);
    EXPECT_EQ(std::string(name).substr(0, disk.size()), disk);
    EXPECT_EQ(result.disk_iops >= 50, !disk.empty()) << result.disk_iops;
}

void MeasureAll() {
    const struct {
        const char *path, *make, *disk;
    } cases[] = {
        {"/mnt/a b", "truncate -s 16M 1 && mkfs.ext4 -q 1 && mount -o loop 1 'a b'", "loop"},
        {"/mnt/btrfs", "truncate -s 128M 2 && mkfs.btrfs -q 2 && mount -o loop 2 btrfs", "loop"},
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
        if (Succeeds(std::string("mkdir -p '") + c.path + "' && cd /mnt && " + c.make)) {
            Measure(c.path, c.disk);
        } else {
            printf("left out, this machine cannot make it: %s\n", c.path);
        }
    }
}

TEST(RealStrict, DirectoriesOnEveryFileSystem) {
    const pid_t child = fork();
    if (child == 0) {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "/mnt", "tmpfs", 0, nullptr) != 0) {
            _exit(NOT_HERE);
        }
        MeasureAll();
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

}  // namespace
}  // namespace corvane_test
