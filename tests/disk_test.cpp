// Disks behind directories: mount table, arrays, registration, load, space.
#include "host.h"
#include "monitor_physical_util_internal.h"

namespace corvane_test {
namespace {

using StringMap = std::map<std::string, std::string>;
using Names = std::vector<std::string>;

TEST(DiskLine, IsThatOfTheShortestPrefixBeforeABlank) {
    const std::string x127(127, 'x');
    const struct {
        Names devices;
        Names disk_names;  // the bar ends the prefix that finds a line
    } cases[] = {
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
    for (const auto& c : cases) {
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

KernelFiles Mounts(const std::string& text) {
    return {{"/etc/mtab", text}};
}

class Disk : public HostTest {
protected:
    Disk() {
        // / on sda2, /data on sdb, /raid on the array of sdc1 and sdd1, /run on no disk.
        for (const char* folder : {"/data/db", "/raid/a", "/raid/b", "/run", "/new", "/var"}) {
            kernel.MakeFolder(folder);
        }
        kernel.MakeLink("/link", "/data/db");
        kernel.Write(
            Mounts("/dev/sda2 / ext4\n/dev/sdb /data xfs\n/dev/md0 /raid xfs\ntmpfs /run "
                   "tmpfs\n/dev/sde /new xfs\n"));
        kernel.Write({{"/proc/mdstat", "md0 : active raid1 sdc1[0] sdd1[1]\n"}});
        kernel.Write(Disks("sda 0 0 0, sdb 0 0 0, sdc 0 0 0, sdd 0 0 0, md0 0 0 0"));
        paths = {"/", "/data", "/data/", "/data/db", "/link", "/new", "/raid/a", "/raid/b", "/run"};
        Start();
    }
    std::string Register(std::vector<const char*> directories) {
        return See([&] {
            return m->SetDiskInfo(directories.data(), static_cast<uint32_t>(directories.size()),
                                  log);
        });
    }
    std::string Measure(const char* path, const std::string& disks, uint64_t seconds = 1,
                        bool refresh = true) {
        const auto calc = [&] { return m->CalcDiskIOMonitorInfo(path, seconds, refresh, log); };
        return disks.empty() ? See(calc) : After(calc, Disks(disks));
    }
};

TEST_F(Disk, MountTable) {
    const std::string root = "/dev/sda1 / ext4 rw 0 0\n";
    const std::string x200(200, 'x');
    const std::string x122(122, 'x');
    const std::string failed = "FAILED; sscanf failed, file: /etc/mtab.";
    const struct {
        std::string text;
        std::string seen;
        StringMap disks;
    } cases[] = {
        {"/dev/mapper/vg-data / xfs\ntmpfs\t/run", "", {{"/", "vg-data"}, {"/run", "tmpfs"}}},
        {"/dev/ /odd x\n", "", {{"/odd", ""}}},
        {root + "/dev/sdb1 / ext4\n", "", {{"/", "sdb1"}}},  // the later mount
        {"/dev/sdb1 /my\\040data ext4\n", "", {{"/my\\040data", "sdb1"}}},
        {root + "\n/dev/sdb1 /data xfs\n", failed, {{"/", "sda1"}}},
        {root + "/dev/sdb1\n/dev/sdc1 /c x\n", failed, {{"/", "sda1"}}},
        {"xxxxx" + x200 + "/sda1 /long xfs\n", "", {{"/long", "xxxxx" + x122}}},
        {"/dev/sda1 /xxxx" + x200 + " xfs\n", "", {{"/xxxx" + x122, "sda1"}}},
        // The rest of a line that is too long is a line of its own.
        {"/dev/b /b " + std::string(40950, 'x') + " yy\n", "", {{"/b", "b"}, {"yy", "x"}}},
    };
    for (const auto& c : cases) {
        Start();
        EXPECT_EQ(After([&] { return inside->SetDefaultDirMapToDisk(log); }, Mounts(c.text)),
                  c.seen);
        EXPECT_EQ(inside->dir_to_disk_map, c.disks);
    }
}

TEST_F(Disk, OfAPathIsThatOfTheDeepestMountAbove) {
    const std::string long_path = "/data/" + std::string(200, 'n');
    kernel.Write({{"/data/db/file", ""},
                  {long_path, ""},
                  {"/var/log", ""},
                  {"/database", ""},
                  {"/data/deep/x", ""},
                  {"/data/deeper", ""}});
    kernel.Write(Mounts("/dev/sda1 / ext4\n/dev/sdb1 /data xfs\n/dev/sdc1 /data/deep xfs\n"));
    inside->SetDefaultDirMapToDisk(log);
    const auto disk_of = [&](const std::string& path, uint32_t length = 128) {
        return See([&] { return m->GetDiskNameByFileName(out.text, length, path.c_str(), log); });
    };
    StringMap expected = inside->dir_to_disk_map;
    const std::map<std::string, Names> paths_of_disks = {
        {"sda1", {"/", "/database", "/data/../var/log"}},
        {"sdb1", {"/data/", "/data/db/file", "/link/file", "/link", "/data/deeper", long_path}},
        {"sdc1", {"/data/deep/x"}}};
    for (const auto& [name, paths_of_disk] : paths_of_disks) {
        for (const std::string& path : paths_of_disk) {
            EXPECT_EQ(disk_of(path), "text " + name) << path;
        }
    }
    expected["/database"] = expected["/var/log"] = "sda1";
    expected["/data/db"] = expected["/data/db/file"] = expected["/data/deeper"] = "sdb1";
    expected[long_path.substr(0, 127)] = "sdb1";
    expected["/data/deep/x"] = "sdc1";
    EXPECT_EQ(inside->dir_to_disk_map, expected);
    // What is remembered outlives the mount, and is as it was cut.
    kernel.Write(Mounts("/dev/sdz1 /data/deep xfs\n"));
    inside->SetDefaultDirMapToDisk(log);
    EXPECT_EQ(disk_of("/data/deep/x", 4), "text sdc");
    EXPECT_EQ(disk_of("/var", 4), "text sda");
    EXPECT_EQ(disk_of("/var"), "text sda");
    EXPECT_EQ(disk_of("/none"),
              "WRONG; file_path is not exist, file_path: /none.; GetRealFilePath failed, ret: "
              "-281.; text -");
    inside->dir_to_disk_map.clear();
    EXPECT_EQ(disk_of("/data/../var/log"),
              "WRONG; file_path: /data/../var/log can not find disk.; text -");
}

TEST_F(Disk, ArraysThatAreActiveAndHaveMembers) {
    const auto read = [&] { return inside->SetDefaultRaidMap(log); };
    const std::string text =
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
        "md11 : active raid1 sdq[0]";
    EXPECT_EQ(After(read, KernelFiles{{"/proc/mdstat", text}}), "");
    std::map<std::string, Names> arrays = {{"md0", {"sdb1", "sda1"}},
                                           {"md11", {"sdq"}},
                                           {"md127", {"nvme0n1p1", "sdc", "dm-3"}},
                                           {"md2", {"sde1", "sdf1"}}};
    EXPECT_EQ(inside->raid_to_disk_map, arrays);
    // Degraded: replaced. Gone, or without members: as it was.
    EXPECT_EQ(After(read, KernelFiles{{"/proc/mdstat",
                                       "md0 : active raid1 sda1[0]\nmd2 : active raid5\n"}}),
              "");
    arrays["md0"] = {"sda1"};
    EXPECT_EQ(inside->raid_to_disk_map, arrays);
}

TEST_F(Disk, RegistrationTakesTheFirstSampleOfEachDiskAndMember) {
    records.accepted = LOG_PRIORITY_DEBUG;
    kernel.Write(Disks("sda 1 1 1, sdc 4 4 4, sdd 5 5 5, md0 5 5 5"));
    EXPECT_EQ(Register({"/raid/a", nullptr, "/run", "", "/", "/raid"}),
              "DEBUG fopen /proc/mdstat success.; DEBUG get md0 : active raid1 sdc1[0] sdd1[1]\n "
              "from file /proc/mdstat.; "
              "DEBUG raid md0 add disk sdc1; DEBUG raid md0 add disk sdd1; "
              "DEBUG disk: md0 is raid disk.; DEBUG disk: tmpfs not raid disk.; DEBUG disk: sda2 "
              "not raid disk.; "
              "DEBUG disk: md0 is raid disk.; disks sdc1 sdd1 md0 sda2");
    EXPECT_STREQ(inside->old_disk_io_info["sda2"].device_name, "sda");
    EXPECT_EQ(inside->old_disk_io_info["sdd1"].reads_completed, 5U);
    records.accepted = LOG_PRIORITY_ERROR;
    kernel.Write(Disks("sda 9 9 9, tmpfs 9 9 9"));
    EXPECT_EQ(Register({"/", "/run"}), "disks sdc1 sdd1 md0 sda2 tmpfs");
    EXPECT_EQ(inside->old_disk_io_info["sda2"].reads_completed, 1U);
}

TEST_F(Disk, RegistrationFaults) {
    const std::string no_file = " failed, error_msg: No such file or directory.; ";
    EXPECT_EQ(
        Register({"/", "/none", "/raid"}),
        "WRONG; file_path is not exist, file_path: /none.; GetRealFilePath failed, ret: -281.; "
        "GetDiskNameByFileName failed, file_path: /none, ret: -281.; disks sda2");
    kernel.Write("/proc/diskstats", "8 0 sdc 1 2\n8 0 sdd 1 2 3 4 5 6 7 8 9 10 11\n8 0 sde 1\n");
    EXPECT_EQ(Register({"/raid", "/new", "/data"}),
              "FAILED; sscanf failed, buf: sdc 1 2.; SetDiskIODefaultStat failed, file_path: sdc1, "
              "ret: -3353.; "
              "sscanf failed, buf: sde 1.; SetDiskIODefaultStat failed, file_path: /new, ret: "
              "-3353.; disks sda2 sdd1");
    kernel.Remove("/proc/mdstat");
    kernel.Remove("/proc/diskstats");
    EXPECT_EQ(
        Register({"/"}),
        "FAILED; fopen /proc/mdstat" + no_file + "fopen /proc/diskstats" + no_file +
            "ReadFromFile failed, file: /proc/diskstats.; GetRawDiskIOInfo failed, ret: -3353.");
    kernel.Remove("/etc/mtab");
    EXPECT_EQ(Register({"/"}),
              "FAILED; fopen /etc/mtab" + no_file + "SetDefaultDirMapToDisk failed, ret: -3353.");
}

TEST_F(Disk, A129thDiskIsMeasuredButNotListed) {
    std::string members;
    std::string lines;
    for (int i = 101; i <= 229; ++i) {
        members += " x" + std::to_string(i) + "[0]";
        lines += ", x" + std::to_string(i) + " 1 1 1";
    }
    kernel.Write({{"/proc/mdstat", "md0 : active raid0" + members}});
    kernel.Write(Disks(lines.substr(2)));
    EXPECT_EQ(Register({"/raid"}).substr(0, 45), "m_disk_name is full, disk_name: x229.; disks ");
    EXPECT_EQ(inside->total_disk_num, 128);
    EXPECT_EQ(inside->old_disk_io_info.size(), 129U);
}

TEST_F(Disk, Load) {
    const struct {
        const char* before;  // reads, writes, busy
        const char* now;
        uint64_t seconds;
        std::string seen;
    } cases[] = {
        {"1000 500 20000", "1600 900 21500", 10, "15 100"},
        {"0 0 0", "1 2 1999", 2, "99 1"},
        {"0 0 0", "0 0 1400", 1, "100 0"},
        {"0 0 1000", "0 0 0", 1, "100 0"},
        {"0 0 0", "0 0 42949673010", 1, "5 0"},  // cut to 32 bits before it is capped
        {"5 0 0", "4 0 0", 1, "0 4294967295"},
        {"5 0 0", "4 1 0", 2, "0 0"},
        {"4294967290 0 0", "10 4294967300 0", 1, "0 20"},
        {"0 0 0", "9 9 9", uint64_t{1} << 32, "0 0"},
        {"0 0 0", "9 9 9", uint64_t{1} << 61, "0 0"},  // times 1000: a multiple of 2^64
    };
    for (const auto& c : cases) {
        Start();
        kernel.Write(Disks(std::string("sdb ") + c.before));
        Register({"/data"});
        EXPECT_EQ(Measure("/data", std::string("sdb ") + c.now, c.seconds), "/data sdb " + c.seen);
    }
}

TEST_F(Disk, LoadOfOneDirectoryWithPeaks) {
    Register({"/", "/data/db"});
    const CorvaneCommon::DiskIOInfo& stored = inside->old_disk_io_info["sdb"];
    EXPECT_EQ(Measure("/data/db", "sda 1 2 40, sdb 600 400 1500", 10, false),
              "/data/db sdb 15 100");
    EXPECT_EQ(Measure("/data/db", "", 10, false), "");  // from the same base
    EXPECT_EQ(Measure("/link", "", 10), "/link sdb 15 100");
    EXPECT_EQ(Measure("/data", ""), "/data sdb 0 0");  // the same disk, nothing since
    EXPECT_EQ(Measure("/", ""), "/ sda2 4 3");         // a partition, by its disk
    EXPECT_EQ(Measure("/data", "sdb 650 400 1700"), "/data sdb 20 50");
    EXPECT_EQ(stored.max_disk_io_rate + stored.max_disk_iops, 120U);
    EXPECT_EQ(See([&] { return m->ClearDiskIOPhasedcacheValue(log); }), "");
    EXPECT_EQ(stored.max_disk_io_rate + stored.max_disk_iops, 0U);
    // Faults keep the result and the base, and say why.
    const std::string of_data = "GetDiskIOInfo failed, ret: -3353, file_path: /data.";
    EXPECT_EQ(Measure("/none", ""),
              "WRONG; file_path is not exist, file_path: /none.; GetRealFilePath failed, "
              "file_path: /none, ret: -281.");
    const std::string no_line = "GetDiskIOInfo failed, ret: -281, file_path: /run.";
    EXPECT_EQ(Measure("/run", ""), "WRONG; " + no_line + "; " + no_line);
    EXPECT_EQ(Measure("/new", "sdb 5 5 5, sde 1 1 1"),
              "NO SAMPLE; can not get old disk info, disk device name: sde.; CalcDiskIOInfo "
              "failed, ret: -3609, file_path: /new.");
    kernel.Write("/proc/diskstats", "8 16 sdb 201 2 3 4 5 6 7 8 9 10\n");
    EXPECT_EQ(Measure("/data", ""), "FAILED; sscanf failed, buf: sdb 201 2 3 4 5 6 7 8 9 10.; " +
                                        of_data + "; " + of_data);
    kernel.Remove("/proc/diskstats");
    EXPECT_EQ(Measure("/data", ""),
              "FAILED; fopen /proc/diskstats failed, error_msg: No such file or directory.; "
              "ReadFromFile failed, file: /proc/diskstats.; "
              "GetRawDiskIOInfo failed, ret: -3353.; " +
                  of_data + "; " + of_data);
    EXPECT_EQ(Measure("/data", "sdb 651 400 1710"), "/data sdb 1 1");
    CorvaneCommon::DiskIOInfoResult load;
    EXPECT_EQ(See([&] { return m->GetDiskIOMonitorInfo(&load, "/data/", log); }),
              "WRONG; /data/ Can not find Disk IO Result Info.");
}

TEST_F(Disk, LoadOfAnArrayIsThatOfItsBusiestMembers) {
    Register({"/raid/a", "/raid/b"});
    EXPECT_EQ(Measure("/raid/a", "sdc 200 100 400, sdd 100 0 600"), "/raid/a - 60 300");
    EXPECT_EQ(Measure("/raid/b", ""), "/raid/b - 0 0");  // the same members, nothing since
    // A member that fails does not stop the ones behind it.
    const std::string no_line = "GetDiskIOInfo failed, ret: -281, disk: sdc1.; ";
    EXPECT_EQ(Measure("/raid/a", "sdd 150 0 800, md0 0 0 10"), no_line + "/raid/a - 20 50");
    inside->old_disk_io_info.erase("sdc1");
    EXPECT_EQ(Measure("/raid/a", "sdc 1 1 1, sdd 160 0 900"),
              "can not get old disk info, disk device name: sdc1.; /raid/a - 10 10");
    records.accepted = LOG_PRIORITY_DEBUG;
    inside->raid_to_disk_map["md0"].clear();  // without members: a disk
    EXPECT_EQ(Measure("/raid/b", "md0 3 0 20"),
              "DEBUG file_path: /raid/b raid disk empty.; DEBUG device_name: md0, "
              "new_reads_completed: 3, new_writes_completed: 0, "
              "old_reads_completed: 0, old_writes_completed: 0, new_time_spent_doing_ios: 20, "
              "old_time_spent_doing_ios: 0, time_interval:  1; /raid/b md0 2 3");
    inside->SetRaidIOStatInfo("", "md0", log);
    EXPECT_EQ(records.Take().back(), "DEBUG disk: md0 raid disk empty.");
}

TEST_F(Disk, LoadOfAListTakesEachDiskOnceAndEachArrayPerDirectory) {
    Register({"/", "/data/db", "/raid/a", "/raid/b"});
    const auto calc = [&](const std::vector<const char*>& list) {
        return See([&] { return m->CalcDiskIOMonitorInfo(list, 1, true, log); });
    };
    const auto sample = [](const std::string& disk, const std::string& reads,
                           const std::string& busy) {
        return "DEBUG device_name: " + disk + ", new_reads_completed: " + reads +
               ", new_writes_completed: 1, old_reads_completed: 0, old_writes_completed: 0, "
               "new_time_spent_doing_ios: " +
               busy + ", old_time_spent_doing_ios: 0, time_interval:  1; ";
    };
    records.accepted = LOG_PRIORITY_DEBUG;
    kernel.Write(Disks("sda 50 1 250, sdb 200 1 30, sdc 3 1 30, sdd 2 1 50, sde 1 1 1"));
    EXPECT_EQ(
        calc({"/raid/a", "/data", "/var", "", nullptr, "/new", "/link"}),
        "DEBUG file_path: /raid/a is raid disk.; " + sample("sdc1", "3", "30") +
            "DEBUG disk: sdc1 iorate 3 iops 4.; " + sample("sdd1", "2", "50") +
            "DEBUG disk: sdd1 iorate 5 iops 3.; DEBUG set path: /raid/a iorate 5 iops 4.; "
            "DEBUG file_path: /data not raid disk.; " +
            sample("sdb", "200", "30") +
            "DEBUG file_path: /data, disk_io_rate: 3, disk_iops: 201; "
            "Can not find disk_name, file_path: /var.; Can not find disk_name, file_path: /var.; "
            "GetDiskIOInfo failed, ret: -281, file_path: /var.; DEBUG file_path: /new not raid "
            "disk.; "
            "can not get old disk info, disk device name: sde.; CalcDiskIOInfo failed, ret: -3609, "
            "file_path: /new.; "
            "DEBUG file_path: /data/db not raid disk.; DEBUG file_path: /link, disk_io_rate: 3, "
            "disk_iops: 201; "
            "/data sdb 3 201; /link sdb 3 201; /raid/a - 5 4");
    records.accepted = LOG_PRIORITY_ERROR;
    // A path that cannot be resolved ends the call.
    EXPECT_EQ(calc({"/data", "/raid/b", "/none", "/"}),
              "WRONG; file_path is not exist, file_path: /none.; GetRealFilePath failed, "
              "file_path: /none, ret: -281.; /data sdb 0 0; /raid/b - 0 0");
    kernel.ResetCounts();
    EXPECT_EQ(calc({"/data", "/data/db", "/raid/a"}), "/data/db sdb 0 0; /raid/a - 0 0");
    EXPECT_EQ(kernel.Count(KernelCall::Open), 4);  // one a directory, one a member
}

TEST_F(Disk, BeyondTheBufferIsNotThere) {
    const std::string last = DiskLine("sdb", 7, 7, 7);
    // Cut off, cut before the newline, complete.
    for (const size_t kept : {size_t{0}, last.size() - 1, last.size()}) {
        kernel.Write("/proc/diskstats", std::string(40959 - kept, '\n') + last);
        Start();
        EXPECT_EQ(Register({"/data"}), kept == last.size() ? "disks sdb" : "");
        EXPECT_EQ(Measure("/data", "").substr(0, 5), kept == last.size() ? "/data" : "WRONG");
    }
}

TEST_F(Disk, SpaceIsTheHostsFigure) {
    const std::string deep = "/" + std::string(200, 'd');
    kernel.MakeFolder(deep);
    const auto space = [&](const std::string& path, const DiskSize& answer) {
        disk_size = answer;
        return See([&] { return m->GetDiskMonitorInfo(&out.space, path.c_str(), log); });
    };
    EXPECT_EQ(space(deep, {0, 102400, 40960}),
              "asked for " + deep + "; space " + deep.substr(0, 127) + " 102400 61440");
    EXPECT_EQ(space("/data", {0, 1, 2}),
              "asked for /data; space /data 1 " + std::to_string(UINT64_MAX));  // wraps
    EXPECT_EQ(
        space("/data", {-7, 9, 1}),
        "-7; asked for /data; GetDiskSize is failed, ret: -7, file_path: /data.; space /data 9 0");
    EXPECT_EQ(space("/none", {0, 5, 1}),
              "WRONG; file_path is not exist, file_path: /none.; space /none 0 0");
}

}  // namespace
}  // namespace corvane_test
