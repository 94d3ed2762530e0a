// Disks behind directories: mount table, arrays, registration.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "capturing_log.h"
#include "corvane_error_code.h"
#include "fake_kernel.h"
#include "kernel_texts.h"
#include "monitor_test_peer.h"

namespace corvane_test {
namespace {

using testing::ElementsAre;
using StringMap = std::map<std::string, std::string>;
using Texts = std::vector<std::string>;

constexpr auto WRONG = COMMON_ERR_INVALID_ARGUMENTS;
constexpr auto FAILED = COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
constexpr const char* MTAB = "/etc/mtab";
constexpr const char* MDSTAT = "/proc/mdstat";
constexpr const char* DISKSTATS = "/proc/diskstats";

TEST(MountTable, LinesAndFaults) {
    struct Case {
        std::string text;
        int32_t status;
        StringMap disks;
    };
    const std::string root = "/dev/sda1 / ext4 rw 0 0\n";
    const std::string x200(200, 'x');
    const std::string x122(122, 'x');
    const std::string long_line = "/dev/b /b " + std::string(40950, 'x') + " yy\n";
    const Case cases[] = {
        {"/dev/mapper/vg-data / xfs\ntmpfs\t/run", 0, {{"/", "vg-data"}, {"/run", "tmpfs"}}},
        {"/dev/ /odd x\n", 0, {{"/odd", ""}}},
        {root + "/dev/sdb1 / ext4\n", 0, {{"/", "sdb1"}}},  // the later mount
        {"/dev/sdb1 /my\\040data ext4\n", 0, {{"/my\\040data", "sdb1"}}},
        {root + "\n/dev/sdb1 /data xfs\n", FAILED, {{"/", "sda1"}}},
        {root + "/dev/sdb1\n/dev/sdc1 /c x\n", FAILED, {{"/", "sda1"}}},
        {"/dev/" + x200 + " /long xfs\n", 0, {{"/long", x122}}},
        {"xxxxx" + x200 + "/sda1 /long xfs\n", 0, {{"/long", "xxxxx" + x122}}},
        {"/dev/sda1 /xxxx" + x200 + " xfs\n", 0, {{"/xxxx" + x122, "sda1"}}},
        {long_line, 0, {{"/b", "b"}, {"yy", "x"}}},  // its rest is a line of its own
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 60));
        const FakeKernel kernel(KernelFiles{{MTAB, c.text}});
        Monitor monitor;
        CapturingLog log;
        EXPECT_EQ(monitor.SetDefaultDirMapToDisk(&log), c.status);
        EXPECT_EQ(monitor.dir_to_disk_map, c.disks);
        EXPECT_EQ(log.TakeTexts(),
                  c.status == 0 ? Texts{} : Texts{"sscanf failed, file: /etc/mtab."});
    }
}

TEST(DiskOfPath, IsThatOfTheDeepestMountAbove) {
    const std::string long_path = "/data/" + std::string(200, 'n');
    FakeKernel kernel(
        KernelFiles{{MTAB, "/dev/sda1 / ext4\n/dev/sdb1 /data xfs\n/dev/sdc1 /data/deep xfs\n"},
                    {"/data/db/file", ""},
                    {long_path, ""}});
    kernel.Write({{"/var/log", ""}, {"/database", ""}, {"/data/deep/x", ""}, {"/data/deeper", ""}});
    kernel.MakeLink("/link", "/data/db");
    Monitor monitor;
    ASSERT_EQ(monitor.SetDefaultDirMapToDisk(nullptr), 0);
    CapturingLog log;
    StringMap expected = monitor.dir_to_disk_map;
    char disk[128] = "x";
    const std::map<std::string, Texts> paths_of_disks = {
        {"sda1", {"/", "/database", "/data/../var/log"}},
        {"sdb1", {"/data/", "/data/db/file", "/link/file", "/link", "/data/deeper", long_path}},
        {"sdc1", {"/data/deep/x"}}};
    for (const auto& [name, paths] : paths_of_disks) {
        for (const std::string& path : paths) {
            EXPECT_EQ(monitor->GetDiskNameByFileName(disk, 128, path.c_str(), &log), 0);
            EXPECT_EQ(disk, name) << path;
        }
    }
    expected["/database"] = expected["/var/log"] = "sda1";
    expected["/data/db"] = expected["/data/db/file"] = expected["/data/deeper"] = "sdb1";
    expected[long_path.substr(0, 127)] = "sdb1";
    expected["/data/deep/x"] = "sdc1";
    EXPECT_EQ(monitor.dir_to_disk_map, expected);
    // What is remembered outlives the mount, and is as it was cut.
    kernel.Write(MTAB, "/dev/sdz1 /data/deep xfs\n");
    EXPECT_EQ(monitor.SetDefaultDirMapToDisk(nullptr), 0);
    EXPECT_EQ(monitor->GetDiskNameByFileName(disk, 4, "/data/deep/x", &log), 0);
    EXPECT_STREQ(disk, "sdc");
    EXPECT_EQ(monitor->GetDiskNameByFileName(disk, 4, "/var", &log), 0);
    EXPECT_EQ(monitor.dir_to_disk_map["/var"], "sda");

    EXPECT_EQ(monitor->GetDiskNameByFileName(disk, 128, "", nullptr), WRONG);
    EXPECT_EQ(monitor->GetDiskNameByFileName(disk, 0, "/data", nullptr), WRONG);
    EXPECT_EQ(monitor->GetDiskNameByFileName(nullptr, 128, nullptr, &log), WRONG);
    EXPECT_STREQ(disk, "sda");
    EXPECT_EQ(monitor->GetDiskNameByFileName(disk, 128, "/data/none", &log), WRONG);
    EXPECT_STREQ(disk, "");
    monitor.dir_to_disk_map.clear();
    EXPECT_EQ(monitor->GetDiskNameByFileName(disk, 128, "/data/../var/log", &log), WRONG);
    EXPECT_THAT(log.TakeTexts(),
                ElementsAre("disk_name is NULL or file_path is NULL or file_path's length is 0 or "
                            "0>=disk_name_length, disk_name: (nil), file path: (nil), "
                            "disk_name_length: 128.",
                            "file_path is not exist, file_path: /data/none.",
                            "GetRealFilePath failed, ret: -281.",
                            "file_path: /data/../var/log can not find disk."));
}

TEST(RaidMap, HoldsActiveArraysWithMembers) {
    FakeKernel kernel(KernelFiles{
        {MDSTAT,
         "Personalities : [linear] [raid1] [raid6]\n"
         "md0 : active raid1 sdb1[1] sda1[0]\n"
         "      488383936 blocks [2/2] [UU]\n\n"
         "   md2 : active raid5 sde1[2] sdf1[1]\n"
         "md127 :  active   raid10 nvme0n1p1[3](F) sdc[2](S)  spare dm-3[0]\n"
         "      [==>..................]  recovery = 12.6% (37043392/292945152) finish=127.5min\n"
         "md4 : active raid1 sdc sdd\n"
         "md5 : active (auto-read-only) raid1 sdc[1] sdd[0]\n"
         "md7 : inactive sdc1[0](S) sdd1[1](S) sde1[2](S)\n"
         "md8 : active linear sdc[0] sdd[1]\n"
         "\tmd10 : active raid1 sdc[0]\n"
         "md12 : active xraid1 sdc[0]\n"
         "md11 : active raid1 sdq[0]"}});
    Monitor monitor;
    EXPECT_EQ(monitor.SetDefaultRaidMap(nullptr), 0);
    std::map<std::string, Texts> arrays = {{"md0", {"sdb1", "sda1"}},
                                           {"md11", {"sdq"}},
                                           {"md127", {"nvme0n1p1", "sdc", "dm-3"}},
                                           {"md2", {"sde1", "sdf1"}}};
    EXPECT_EQ(monitor.raid_to_disk_map, arrays);
    // Degraded: replaced. Gone, or without members: as it was.
    kernel.Write(MDSTAT, "md0 : active raid1 sda1[0]\nmd2 : active raid5\n");
    EXPECT_EQ(monitor.SetDefaultRaidMap(nullptr), 0);
    arrays["md0"] = {"sda1"};
    EXPECT_EQ(monitor.raid_to_disk_map, arrays);
}

/// / on sda2, /raid on the array md0 of sdb1 and sdc1, /run on no disk.
class Registration : public testing::Test {
protected:
    Registration() {
        kernel.MakeFolder("/run");
        kernel.MakeFolder("/raid/a");
    }
    static int32_t Register(Monitor& target, std::vector<const char*> paths,
                            CapturingLog& records) {
        return target->SetDiskInfo(paths.data(), static_cast<uint32_t>(paths.size()), &records);
    }
    static Texts Listed(Monitor& target) {
        const auto result = std::make_unique<CorvaneCommon::DiskNameInfoResult>();
        result->disk_name[127][0] = 'x';
        auto* pointer = result.get();
        EXPECT_EQ(target->GetDiskNameInfo(pointer, nullptr), 0);
        EXPECT_STREQ(result->disk_name[127], "");
        return {&result->disk_name[0], &result->disk_name[result->disk_number]};
    }

    FakeKernel kernel{
        KernelFiles{{MTAB, "/dev/sda2 / ext4\n/dev/md0 /raid xfs\ntmpfs /run tmpfs\n"},
                    {MDSTAT, "md0 : active raid1 sdb1[0] sdc1[1]\n"},
                    {DISKSTATS, DiskLine("sda", 1, 1, 1) + DiskLine("sdb", 3, 3, 3) +
                                    DiskLine("sdc", 4, 4, 4) + DiskLine("md0", 5, 5, 5)}}};
    Monitor monitor;
    CapturingLog log{LOG_PRIORITY_DEBUG};
};

TEST_F(Registration, TakesTheFirstSampleOfEachDiskAndMember) {
    EXPECT_EQ(Register(monitor, {"/raid/a", nullptr, "/run", "", "/", "/raid"}, log), 0);
    EXPECT_THAT(
        log.TakeTexts(),
        ElementsAre("DEBUG fopen /proc/mdstat success.",
                    "DEBUG get md0 : active raid1 sdb1[0] sdc1[1]\n from file /proc/mdstat.",
                    "DEBUG raid md0 add disk sdb1", "DEBUG raid md0 add disk sdc1",
                    "DEBUG disk: md0 is raid disk.", "DEBUG disk: tmpfs not raid disk.",
                    "DEBUG disk: sda2 not raid disk.", "DEBUG disk: md0 is raid disk."));
    EXPECT_THAT(Listed(monitor), ElementsAre("sdb1", "sdc1", "md0", "sda2"));
    EXPECT_STREQ(monitor.old_disk_io_info["sda2"].device_name, "sda");
    EXPECT_EQ(monitor.old_disk_io_info["sdc1"].reads_completed, 4U);
    kernel.Write(DISKSTATS, DiskLine("sda", 9, 9, 9) + DiskLine("tmpfs", 9, 9, 9));
    EXPECT_EQ(Register(monitor, {"/", "/run"}, log), 0);
    EXPECT_EQ(monitor.old_disk_io_info["sda2"].reads_completed, 1U);
    EXPECT_THAT(Listed(monitor), ElementsAre("sdb1", "sdc1", "md0", "sda2", "tmpfs"));
    monitor.raid_to_disk_map["md0"].clear();
    monitor.SetRaidIOStatInfo("", "md0", &log);
    EXPECT_EQ(log.TakeTexts().back(), "DEBUG disk: md0 raid disk empty.");
}

TEST_F(Registration, Faults) {
    const auto expect = [](const std::vector<const char*>& paths, int32_t status,
                           const Texts& records, const Texts& disks) {
        Monitor fresh;
        CapturingLog errors;
        EXPECT_EQ(Register(fresh, paths, errors), status);
        EXPECT_EQ(errors.TakeTexts(), records);
        EXPECT_EQ(Listed(fresh), disks);
    };
    const std::string no_file = " failed, error_msg: No such file or directory.";
    expect({}, WRONG,
           {"file_path is NULL or 0>= file_path_num, file_path: (nil), file_path_num: 0."}, {});
    expect({"/", "/none", "/raid"}, WRONG,
           {"file_path is not exist, file_path: /none.", "GetRealFilePath failed, ret: -281.",
            "GetDiskNameByFileName failed, file_path: /none, ret: -281."},
           {"sda2"});
    kernel.Write(DISKSTATS, "8 0 sdb 1 2\n8 0 sdc 1 2 3 4 5 6 7 8 9 10 11\n8 0 sda 1\n");
    expect({"/raid", "/"}, FAILED,
           {"sscanf failed, buf: sdb 1 2.",
            "SetDiskIODefaultStat failed, file_path: sdb1, ret: -3353.",
            "sscanf failed, buf: sda 1.", "SetDiskIODefaultStat failed, file_path: /, ret: -3353."},
           {"sdc1"});
    kernel.Remove(MDSTAT);
    kernel.Remove(DISKSTATS);
    expect({"/"}, FAILED,
           {"fopen /proc/mdstat" + no_file, "fopen /proc/diskstats" + no_file,
            "ReadFromFile failed, file: /proc/diskstats.", "GetRawDiskIOInfo failed, ret: -3353."},
           {});
    kernel.Remove(MTAB);
    expect({"/"}, FAILED,
           {"fopen /etc/mtab" + no_file, "SetDefaultDirMapToDisk failed, ret: -3353."}, {});

    CorvaneCommon::DiskNameInfoResult* none = nullptr;
    EXPECT_EQ(monitor->GetDiskNameInfo(none, &log), WRONG);
    EXPECT_EQ(monitor.SetDiskIOStatInfo(nullptr, nullptr, &log), WRONG);
    EXPECT_EQ(monitor.SetDiskIOStatInfo("", "sda", nullptr), WRONG);
    EXPECT_THAT(log.TakeTexts(),
                ElementsAre("disk_name_info_result is NULL.",
                            "disk_name is NULL or disk_name's length is 0 or proc_diskstats is "
                            "NULL or proc_diskstats's length is 0, disk_name: (nil), "
                            "proc_diskstats: (nil)."));
}

TEST_F(Registration, A129thDiskIsMeasuredButNotListed) {
    for (int i = 101; i <= 229; ++i) {
        const std::string disk = "x" + std::to_string(i);
        const std::string text = DiskLine(disk, 1, 1, 1);
        EXPECT_EQ(monitor.SetDiskIOStatInfo(text.c_str(), disk.c_str(), &log), 0);
    }
    EXPECT_THAT(log.TakeTexts(), ElementsAre("m_disk_name is full, disk_name: x229."));
    EXPECT_EQ(monitor.total_disk_num, 128);
    EXPECT_EQ(monitor.old_disk_io_info.size(), 129U);
}

}  // namespace
}  // namespace corvane_test
