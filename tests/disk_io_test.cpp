// Load of disks and arrays, and space.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <tuple>
#include <vector>

#include "capturing_log.h"
#include "corvane_error_code.h"
#include "fake_kernel.h"
#include "kernel_texts.h"
#include "monitor_physical_util_internal.h"
#include "monitor_test_peer.h"

namespace corvane_test {
namespace {

using testing::ElementsAre;
using Texts = std::vector<std::string>;

constexpr auto WRONG = COMMON_ERR_INVALID_ARGUMENTS;
constexpr auto FAILED = COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
constexpr const char* DISKSTATS = "/proc/diskstats";

TEST(DiskLine, IsThatOfTheShortestPrefixBeforeABlank) {
    const std::string x127(127, 'x');
    struct Case {
        Texts devices;
        Texts disk_names;  // the bar ends the prefix that finds a line
    };
    const Case cases[] = {
        {{"sda", "sda1", "sdb", "loop0", "loop1", "loop10"},
         {"sda|1", "sdb|2", "|sdd", "loop1|0", "|", "da|ta", "a|rchive", "b|ackup", "|overlay",
          "|tmpfs", "|debian--vg-root", "|vg-data", "8|"}},
        {{"sdl", "nvme0n1", "nvme0n1p1", "nvme0n10", "md1", "md127", "dm-1", "dm-10"},
         {"nvme0n1|p1", "nvme0n1|0", "md1|27", "dm-1|0"}},
        {{"md127", "md1"}, {"md127|"}},
        // A disk's last letters catch the names that begin with them.
        {{"sde", "sdm", "sdn", "sdv", "sdx", "nvme0n1", "md0", "dm-0", "vda", "xvda"},
         {"n|vme0n1", "m|d0", "v|da", "x|vda", "v|g-data", "de|bian--vg-root"}},
        {{x127}, {x127 + "|xx"}},
        {{x127 + "x"}, {"|" + x127 + "x"}},
    };
    for (const Case& c : cases) {
        for (const std::string& marked : c.disk_names) {
            const std::string prefix = marked.substr(0, marked.find('|'));
            const std::string disk_name = prefix + marked.substr(prefix.size() + 1);
            std::string text;
            for (const std::string& device : c.devices) {
                text += DiskLine(device, 0, 0, 0);
            }
            const char* const line = prefix.empty() ? nullptr : &text[text.find(prefix + " ")];
            EXPECT_EQ(CorvaneCommon::FindDiskLine(text.data(), disk_name.c_str()), line) << marked;
        }
    }
    std::string text = "8 0 sda\t1\n8 0 sda\n";
    EXPECT_EQ(CorvaneCommon::FindDiskLine(text.data(), "sda"), nullptr);
}

/// / on sda2, /data on sdb, /raid on the array of sdc1 and sdd1; registered.
class DiskLoad : public testing::Test {
protected:
    DiskLoad() {
        for (const char* folder : {"/data/db", "/raid/a", "/raid/b", "/run", "/new", "/var"}) {
            kernel.MakeFolder(folder);
        }
        kernel.MakeLink("/link", "/data/db");
        Write(DiskLine("sda", 0, 0, 0) + DiskLine("sdb", 0, 0, 0) + DiskLine("sdc", 0, 0, 0) +
              DiskLine("sdd", 0, 0, 0) + DiskLine("md0", 0, 0, 0));
        const char* paths[] = {"/", "/data/db", "/raid/a", "/raid/b"};
        EXPECT_EQ(monitor->SetDiskInfo(paths, 4, nullptr), 0);
    }
    void Write(const std::string& text) { kernel.Write(DISKSTATS, text); }
    /// "sdb 15 100": disk, percent, operations.
    std::string Read(const char* path) {
        CorvaneCommon::DiskIOInfoResult result;
        if (monitor->GetDiskIOMonitorInfo(&result, path, nullptr) != 0) {
            return "none";
        }
        return std::string(result.disk_name) + " " + std::to_string(result.disk_io_rate) + " " +
               std::to_string(result.disk_iops);
    }
    std::string Measure(const char* path, uint64_t seconds = 1, bool refresh = true) {
        EXPECT_EQ(monitor->CalcDiskIOMonitorInfo(path, seconds, refresh, &log), 0);
        return Read(path);
    }

    FakeKernel kernel{KernelFiles{{"/etc/mtab",
                                   "/dev/sda2 / ext4\n/dev/sdb /data xfs\n/dev/md0 /raid xfs\n"
                                   "tmpfs /run tmpfs\n/dev/sde /new xfs\n"},
                                  {"/proc/mdstat", "md0 : active raid1 sdc1[0] sdd1[1]\n"}}};
    Monitor monitor;
    CapturingLog log;
};

TEST_F(DiskLoad, Figures) {
    using Load = std::array<uint64_t, 3>;  // reads, writes, busy
    const auto figures = [this](Load before, Load now, uint64_t seconds) {
        Write(DiskLine("sdb", before[0], before[1], before[2]));
        Measure("/data");
        Write(DiskLine("sdb", now[0], now[1], now[2]));
        return Measure("/data", seconds);
    };
    constexpr uint64_t TWO_32 = uint64_t{1} << 32;
    constexpr uint64_t TWO_61 = uint64_t{1} << 61;  // times 1000: a multiple of 2^64
    EXPECT_EQ(figures({1000, 500, 20000}, {1600, 900, 21500}, 10), "sdb 15 100");
    EXPECT_EQ(figures({}, {1, 2, 1999}, 2), "sdb 99 1");
    EXPECT_EQ(figures({}, {0, 0, 1400}, 1), "sdb 100 0");
    EXPECT_EQ(figures({0, 0, 1000}, {}, 1), "sdb 100 0");
    EXPECT_EQ(figures({}, {0, 0, (TWO_32 + 5) * 10}, 1), "sdb 5 0");  // cut before it is capped
    EXPECT_EQ(figures({5, 0, 0}, {4, 0, 0}, 1), "sdb 0 4294967295");
    EXPECT_EQ(figures({5, 0, 0}, {4, 1, 0}, 2), "sdb 0 0");
    EXPECT_EQ(figures({TWO_32 - 6, 0, 0}, {10, TWO_32 + 4, 0}, 1), "sdb 0 20");
    EXPECT_EQ(figures({}, {9, 9, 9}, TWO_32), "sdb 0 0");
    EXPECT_EQ(figures({}, {9, 9, 9}, TWO_61), "sdb 0 0");
}

TEST_F(DiskLoad, OfOneDirectoryWithPeaks) {
    const CorvaneCommon::DiskIOInfo& stored = monitor.old_disk_io_info["sdb"];
    const auto peaks = [&] { return std::vector{stored.max_disk_io_rate, stored.max_disk_iops}; };
    Write(DiskLine("sda", 1, 2, 40) + DiskLine("sdb", 600, 400, 1500));
    EXPECT_EQ(Measure("/data/db", 10, false), "sdb 15 100");
    EXPECT_EQ(Measure("/data/db", 10, false), "sdb 15 100");  // from the same base
    EXPECT_EQ(Measure("/link", 10), "sdb 15 100");
    EXPECT_EQ(Measure("/data"), "sdb 0 0");  // the same disk, nothing since
    EXPECT_EQ(Measure("/"), "sda2 4 3");     // a partition, by its disk
    EXPECT_EQ(Read("/data/"), "none");       // keys are kept as they were passed
    Write(DiskLine("sdb", 650, 400, 1700));
    EXPECT_EQ(Measure("/data"), "sdb 20 50");
    EXPECT_THAT(peaks(), ElementsAre(20, 100));
    EXPECT_EQ(monitor->ClearDiskIOPhasedcacheValue(nullptr), 0);
    EXPECT_THAT(peaks(), ElementsAre(0, 0));
    EXPECT_THAT(log.TakeTexts(), testing::IsEmpty());
}

TEST_F(DiskLoad, FaultsKeepTheResultAndSayWhy) {
    Write(DiskLine("sdb", 100, 0, 500));
    EXPECT_EQ(Measure("/data"), "sdb 50 100");
    const auto calc = [this](const char* path) {
        return monitor->CalcDiskIOMonitorInfo(path, 1, true, &log);
    };
    EXPECT_EQ(calc("/none"), WRONG);
    EXPECT_EQ(calc("/run"), WRONG);
    Write("8 16 sdb 201 2 3 4 5 6 7 8 9 10\n");
    EXPECT_EQ(calc("/data"), FAILED);
    kernel.Remove(DISKSTATS);
    EXPECT_EQ(calc("/data"), FAILED);
    CorvaneCommon::DiskIOInfoResult load;
    EXPECT_EQ(monitor->GetDiskIOMonitorInfo(&load, "/data/", &log), WRONG);
    EXPECT_EQ(Read("/data"), "sdb 50 100");
    EXPECT_EQ(monitor.old_disk_io_info["sdb"].reads_completed, 100U);
    uint32_t rate = 7;
    const char* no_path = nullptr;
    EXPECT_THAT(
        (std::vector{monitor.GetDiskIOInfoImpl(nullptr, nullptr, &log),
                     monitor.GetRawDiskIOInfo(nullptr, 0U, &log),
                     monitor.GetDiskIOInfo(nullptr, nullptr, &log),
                     monitor.CalcDiskIOInfo(rate, rate, nullptr, uint64_t{5}, true, &log),
                     calc(no_path), monitor->CalcDiskIOMonitorInfo(std::vector{"/"}, 0, true, &log),
                     monitor->GetDiskIOMonitorInfo(nullptr, nullptr, &log),
                     monitor->GetDiskMonitorInfo(nullptr, nullptr, &log),
                     monitor->CalcDiskIOMonitorInfo("", 1, true, nullptr),
                     monitor->CalcDiskIOMonitorInfo("/", 0, true, nullptr)}),
        testing::Each(WRONG));
    EXPECT_EQ(rate, 0U);
    const std::string no_line = "GetDiskIOInfo failed, ret: -281, file_path: /run.";
    const std::string failed = "GetDiskIOInfo failed, ret: -3353, file_path: /data.";
    const std::string no_name = "is NULL or file_path is NULL or file_path's length is 0, ";
    EXPECT_THAT(
        log.TakeTexts(),
        ElementsAre(
            "file_path is not exist, file_path: /none.",
            "GetRealFilePath failed, file_path: /none, ret: -281.", no_line, no_line,
            "sscanf failed, buf: sdb 201 2 3 4 5 6 7 8 9 10.", failed, failed,
            "fopen /proc/diskstats failed, error_msg: No such file or directory.",
            "ReadFromFile failed, file: /proc/diskstats.", "GetRawDiskIOInfo failed, ret: -3353.",
            failed, failed, "/data/ Can not find Disk IO Result Info.",
            "disk_name is NULL or disk_name's length is 0 or disk_io_info is NULL, "
            "disk_io_info: (nil), disk_name: (nil).",
            "raw_disk_io_info is NULL or raw_disk_io_info_length is 0, "
            "raw_disk_io_info: (nil), raw_disk_io_info_length: 0.",
            "disk_io_info " + no_name + "disk_io_info: (nil), file path: (nil).",
            "now_disk_io_info is NULL or 0>= time_interval, now_disk_io_info: (nil), "
            "time_interval: 5.",
            "0>=time_interval or file_path is NULL or file_path's length is 0, file_path: (nil), "
            "time_interval: 1.",
            "time_interval: 0.",
            "disk_io_info_result " + no_name + "disk_io_info_result: (nil), file_path: (nil).",
            "disk_info_result " + no_name + "disk_info_result: (nil), file path: (nil)."));
}

TEST_F(DiskLoad, OfAnArrayIsThatOfItsBusiestMembers) {
    Write(DiskLine("sdc", 200, 100, 400) + DiskLine("sdd", 100, 0, 600));
    EXPECT_EQ(Measure("/raid/a"), " 60 300");
    EXPECT_EQ(Measure("/raid/./b"), " 0 0");  // the same members, nothing since
    Write(DiskLine("sdd", 150, 0, 800) + DiskLine("md0", 0, 0, 10));
    EXPECT_EQ(Measure("/raid/a"), " 20 50");
    monitor.old_disk_io_info.erase("sdd1");
    EXPECT_EQ(Measure("/raid/a"), " 0 0");
    const std::string no_line = "GetDiskIOInfo failed, ret: -281, disk: sdc1.";
    EXPECT_THAT(log.TakeTexts(), ElementsAre(no_line, no_line,
                                             "can not get old disk info, disk device name: sdd1."));
    CapturingLog debug(LOG_PRIORITY_DEBUG);
    monitor.raid_to_disk_map["md0"].clear();  // without members: a disk
    EXPECT_EQ(monitor->CalcDiskIOMonitorInfo("/raid/a", 1, true, &debug), 0);
    EXPECT_EQ(debug.TakeTexts()[0], "DEBUG file_path: /raid/a raid disk empty.");
    EXPECT_EQ(Read("/raid/a"), "md0 1 0");
}

TEST_F(DiskLoad, OfAListTakesEachDiskOnceAndEachArrayPerDirectory) {
    Write(DiskLine("sda", 50, 1, 250) + DiskLine("sdb", 200, 1, 30) + DiskLine("sdc", 3, 1, 30) +
          DiskLine("sdd", 2, 1, 50) + DiskLine("sde", 1, 1, 1));
    CapturingLog debug(LOG_PRIORITY_DEBUG);
    const auto calc = [&](const std::vector<const char*>& paths) {
        return monitor->CalcDiskIOMonitorInfo(paths, 1, true, &debug);
    };
    EXPECT_EQ(calc({"/raid/a", "/data", "/var", "", nullptr, "/new", "/link"}), 0);
    const auto sample = [](const std::string& disk, int reads, int busy) {
        return "DEBUG device_name: " + disk + ", new_reads_completed: " + std::to_string(reads) +
               ", new_writes_completed: 1, old_reads_completed: 0, old_writes_completed: 0, "
               "new_time_spent_doing_ios: " +
               std::to_string(busy) + ", old_time_spent_doing_ios: 0, time_interval:  1";
    };
    EXPECT_THAT(
        debug.TakeTexts(),
        ElementsAre("DEBUG file_path: /raid/a is raid disk.", sample("sdc1", 3, 30),
                    "DEBUG disk: sdc1 iorate 3 iops 4.", sample("sdd1", 2, 50),
                    "DEBUG disk: sdd1 iorate 5 iops 3.", "DEBUG set path: /raid/a iorate 5 iops 4.",
                    "DEBUG file_path: /data not raid disk.", sample("sdb", 200, 30),
                    "DEBUG file_path: /data, disk_io_rate: 3, disk_iops: 201",
                    "Can not find disk_name, file_path: /var.",
                    "Can not find disk_name, file_path: /var.",
                    "GetDiskIOInfo failed, ret: -281, file_path: /var.",
                    "DEBUG file_path: /new not raid disk.",
                    "can not get old disk info, disk device name: sde.",
                    "CalcDiskIOInfo failed, ret: -3609, file_path: /new.",
                    "DEBUG file_path: /data/db not raid disk.",
                    "DEBUG file_path: /link, disk_io_rate: 3, disk_iops: 201"));
    EXPECT_EQ(Read("/link"), "sdb 3 201");
    EXPECT_EQ(monitor->CalcDiskIOMonitorInfo("/new", 1, true, nullptr),
              COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE);
    EXPECT_EQ(Read("/new"), "none");
    EXPECT_EQ(calc({"/data", "/raid/b", "/none", "/"}), WRONG);
    EXPECT_EQ(Read("/data"), "sdb 0 0");
    EXPECT_EQ(Read("/raid/b"), " 0 0");
    EXPECT_EQ(Read("/"), "none");  // behind the fault: not measured
    EXPECT_EQ(debug.TakeTexts().back(), "GetRealFilePath failed, file_path: /none, ret: -281.");
    kernel.ResetCounts();
    EXPECT_EQ(calc({"/data", "/data/db", "/raid/a"}), 0);
    EXPECT_EQ(kernel.Count(KernelCall::Open), 4);  // one a directory, one a member
}

TEST_F(DiskLoad, ADiskBeyondTheBufferIsNotThere) {
    const std::string last = DiskLine("sdb", 7, 7, 7);
    // Cut off, cut before the newline, complete.
    for (const size_t kept : {size_t{0}, last.size() - 1, last.size()}) {
        Write(std::string(40959 - kept, '\n') + last);
        Monitor fresh;
        const char* paths[] = {"/data"};
        EXPECT_EQ(fresh->SetDiskInfo(paths, 1, nullptr), 0);
        const bool there = kept == last.size();
        EXPECT_EQ(fresh.total_disk_num, there ? 1 : 0);
        EXPECT_EQ(fresh->CalcDiskIOMonitorInfo("/data", 1, true, nullptr), there ? 0 : WRONG);
    }
}

TEST_F(DiskLoad, SpaceIsTheHostsFigure) {
    const std::string deep = "/" + std::string(200, 'd');
    kernel.MakeFolder(deep);
    /// Status, total, used.
    const auto space = [this](const std::string& path, const DiskSizeAnswer& answer) {
        TheDiskSize() = answer;
        CorvaneCommon::DiskInfoResult result;
        result.total_mb = result.use_mb = 77;
        const int32_t status = monitor->GetDiskMonitorInfo(&result, path.c_str(), &log);
        EXPECT_EQ(result.file_path, path.substr(0, 127));
        EXPECT_EQ(TheDiskSize().asked_path, status == WRONG ? "" : path);
        return std::make_tuple(status, result.total_mb, result.use_mb);
    };
    EXPECT_EQ(space(deep, {0, 102400, 40960, ""}), std::tuple(0, 102400UL, 61440UL));
    EXPECT_EQ(space("/data", {0, 1, 2, ""}), std::tuple(0, 1UL, UINT64_MAX));  // wraps
    EXPECT_EQ(space("/data", {-7, 9, 1, ""}), std::tuple(-7, 9UL, 0UL));
    EXPECT_EQ(space("/none", {0, 5, 1, ""}), std::tuple(WRONG, 0UL, 0UL));
    EXPECT_THAT(log.TakeTexts(), ElementsAre("GetDiskSize is failed, ret: -7, file_path: /data.",
                                             "file_path is not exist, file_path: /none."));
}

}  // namespace
}  // namespace corvane_test
