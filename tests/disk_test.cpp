// Disks behind directories: mount table, arrays, registration, load, space.
#include "host.h"
#include "monitor_physical_util_internal.h"

namespace corvane_test {
namespace {

using Names = std::vector<std::string>;
using namespace std::string_literals;

class Disk : public HostTest {
protected:
    /// / on sda2, /data on sdb, /raid on the array of sdc1 and sdd1, /run on no disk.
    Disk() {
        for (const char* folder : {"/data/db", "/raid/a", "/raid/b", "/run", "/new", "/var"}) {
            kernel.MakeFolder(folder);
        }
        kernel.MakeLink("/link", "/data/db");
        kernel.Write({{"/etc/mtab",
                       "/dev/sda2 / ext4\n/dev/sdb /data xfs\n/dev/md0 /raid xfs\n"
                       "tmpfs /run tmpfs\n/dev/sde /new xfs\n"},
                      {"/proc/mdstat", "md0 : active raid1 sdc1[0] sdd1[1]\n"}});
        kernel.Write(Disks("sda 0 0 0, sdb 0 0 0, sdc 0 0 0, sdd 0 0 0, md0 0 0 0"));
        paths = {"/", "/data", "/data/db", "/link", "/new", "/raid/a", "/raid/b", "/run"};
        Start();
    }
    std::string Register(Names directories, const KernelFiles& files = {}) {
        std::vector<const char*> list = {nullptr};
        for (const std::string& directory : directories) {
            list.push_back(directory.c_str());
        }
        return AFTER(files, m->SetDiskInfo(list.data(), static_cast<uint32_t>(list.size()), log));
    }
    std::string Measure(const char* path, const KernelFiles& files = {}, uint64_t seconds = 1,
                        bool refresh = true) {
        return AFTER(files, m->CalcDiskIOMonitorInfo(path, seconds, refresh, log));
    }
    std::string Mounts(const std::string& text) {
        kernel.Write("/etc/mtab", text);
        return SEE(inside->SetDefaultDirMapToDisk(log));
    }
    /// The disks of the directories that the monitor knows.
    std::string Known() const {
        std::string text;
        for (const auto& [directory, disk] : inside->dir_to_disk_map) {
            text += directory + "=" + disk + " ";
        }
        return text;
    }
};

TEST_F(Disk, LineIsThatOfTheShortestPrefixBeforeABlank) {
    const std::string x127(127, 'x');
    for (const auto& [devices, marked] : std::vector<std::pair<std::string, Names>>{
             // The bar ends the prefix that is found.
             {"sda, sda1, sdb, loop1, loop10", {"sda|1", "|sdd", "loop1|0", "|", "da|ta", "8|"}},
             {"nvme0n1, nvme0n1p1, md1, md127", {"nvme0n1|p1", "nvme0n1|0", "md1|27"}},
             {"md127, md1", {"md127|"}},
             {"sdm, sdn, nvme0n1, md0", {"n|vme0n1", "m|d0", "|overlay"}},
             {x127, {x127 + "|xx"}},
             {x127 + "x", {"|" + x127 + "x"}}}) {
        for (const std::string& name : marked) {
            const std::string prefix = name.substr(0, name.find('|'));
            std::string text = Disks(devices).at("/proc/diskstats");
            const char* const line = prefix.empty() ? nullptr : &text[text.find(prefix + " ")];
            const std::string disk = prefix + name.substr(prefix.size() + 1);
            EXPECT_EQ(CorvaneCommon::FindDiskLine(text.data(), disk.c_str()), line) << name;
        }
    }
    std::string text = "8 0 sda\t1\n8 0 sda\n";
    EXPECT_EQ(CorvaneCommon::FindDiskLine(text.data(), "sda"), nullptr);
}

TEST_F(Disk, MountTable) {
    const std::string root = "/dev/sda1 / ext4 rw 0 0\n";
    const std::string x200(200, 'x');
    const std::string x122(122, 'x');
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"/dev/mapper/vg-data / xfs\ntmpfs\t/run", "/=vg-data /run=tmpfs "},
        {"/dev/ /odd x\n", "/odd= "},
        {root + "/dev/sdb1 / ext4\n", "/=sdb1 "},  // the later mount
        {"/dev/sdb1 /my\\040data ext4\n", "/my\\040data=sdb1 "},
        {"xxxxx" + x200 + "/sda1 /long xfs\n", "/long=xxxxx" + x122 + " "},
        {"/dev/sda1 /xxxx" + x200 + " xfs\n", "/xxxx" + x122 + "=sda1 "},
        // The rest of a line that is too long is a line of its own.
        {"/dev/b /b " + std::string(40950, 'x') + " yy\n", "/b=b yy=x "}};
    for (const auto& [text, disks] : cases) {
        Start();
        EXPECT_EQ(Mounts(text), "");
        EXPECT_EQ(Known(), disks);
    }
    for (const char* const bad : {"\n/dev/sdb1 /data xfs\n", "/dev/sdb1\n/dev/sdc1 /c x\n"}) {
        Start();
        EXPECT_EQ(Mounts(root + bad), "FAILED; sscanf failed, file: /etc/mtab.");
        EXPECT_EQ(Known(), "/=sda1 ");
    }
}

TEST_F(Disk, OfAPathIsThatOfTheDeepestMountAbove) {
    const std::string x200(200, 'x');
    kernel.Write({{"/data/db/file", ""},
                  {"/data/" + x200, ""},
                  {"/database", ""},
                  {"/var/log", ""},
                  {"/data/deep/x", ""},
                  {"/data/deeper", ""}});
    Mounts("/dev/sda1 / ext4\n/dev/sdb1 /data xfs\n/dev/sdc1 /data/deep xfs\n");
    const auto disk_of = [&](const std::string& path, uint32_t length = 128) {
        return SEE(m->GetDiskNameByFileName(out.text, length, path.c_str(), log));
    };
    for (const std::string path : {"/", "/database", "/data/../var/log"}) {
        EXPECT_EQ(disk_of(path), "text sda1");
    }
    for (const std::string& path : {"/data/"s, "/link/file"s, "/data/deeper"s, "/data/" + x200}) {
        EXPECT_EQ(disk_of(path), "text sdb1");
    }
    EXPECT_EQ(disk_of("/data/deep/x"), "text sdc1");
    EXPECT_EQ(Known(),
              "/=sda1 /data=sdb1 /data/db/file=sdb1 /data/deep=sdc1 /data/deep/x=sdc1 "
              "/data/deeper=sdb1 /data/" +
                  x200.substr(0, 121) +
                  "=sdb1 /database=sda1 "
                  "/var/log=sda1 ");
    // What is remembered outlives the mount, and is as it was cut.
    Mounts("/dev/sdz1 /data/deep xfs\n");
    EXPECT_EQ(disk_of("/data/deep/x", 4), "text sdc");
    EXPECT_EQ(disk_of("/var", 4), "text sda");
    EXPECT_EQ(disk_of("/var"), "text sda");
    EXPECT_EQ(disk_of("/none"),
              "WRONG; file_path is not exist, file_path: /none.; "
              "GetRealFilePath failed, ret: -281.; text -");
    inside->dir_to_disk_map.clear();
    EXPECT_EQ(disk_of("/data/../var"), "WRONG; file_path: /data/../var can not find disk.; text -");
}

TEST_F(Disk, ArraysThatAreActiveAndHaveMembers) {
    kernel.Write("/proc/mdstat",
                 "Personalities : [linear] [raid1] [raid6]\n"
                 "md0 : active raid1 sdb1[1] sda1[0]\n      488383936 blocks [2/2] [UU]\n\n"
                 "   md2 : active raid5 sde1[2] sdf1[1]\n"
                 "md127 :  active   raid10 nvme0n1p1[3](F) sdc[2](S)  spare dm-3[0]\n"
                 "md4 : active raid1 sdc sdd\nmd5 : active (auto-read-only) raid1 sdc[1] sdd[0]\n"
                 "md7 : inactive sdc1[0](S) sdd1[1](S) sde1[2](S)\nmd8 : active linear sdc[0]\n"
                 "\tmd10 : active raid1 sdc[0]\nmd12 : active xraid1 sdc[0]\n"
                 "md11 : active raid1 sdq[0]");
    EXPECT_EQ(SEE(inside->SetDefaultRaidMap(log)), "");
    std::map<std::string, Names> arrays = {{"md0", {"sdb1", "sda1"}},
                                           {"md11", {"sdq"}},
                                           {"md2", {"sde1", "sdf1"}},
                                           {"md127", {"nvme0n1p1", "sdc", "dm-3"}}};
    EXPECT_EQ(inside->raid_to_disk_map, arrays);
    // Degraded: replaced. Gone, or without members: as it was.
    kernel.Write("/proc/mdstat", "md0 : active raid1 sda1[0]\nmd2 : active raid5\n");
    arrays["md0"] = {"sda1"};
    EXPECT_EQ(SEE(inside->SetDefaultRaidMap(log)), "");
    EXPECT_EQ(inside->raid_to_disk_map, arrays);
}

TEST_F(Disk, Registration) {
    records.accepted = LOG_PRIORITY_DEBUG;
    EXPECT_EQ(
        Register({"/raid/a", "/run", "", "/", "/raid"},
                 Disks("sda 1 1 1, sdc 4 4 4, sdd 5 5 5, md0 5 5 5")),
        "DEBUG fopen /proc/mdstat success.; DEBUG get md0 : active raid1 sdc1[0] sdd1[1]\n "
        "from file /proc/mdstat.; DEBUG raid md0 add disk sdc1; DEBUG raid md0 add disk sdd1; "
        "DEBUG disk: md0 is raid disk.; DEBUG disk: tmpfs not raid disk.; DEBUG disk: sda2 not "
        "raid disk.; DEBUG disk: md0 is raid disk.; disks sdc1 sdd1 md0 sda2");
    EXPECT_STREQ(inside->old_disk_io_info["sda2"].device_name, "sda");
    EXPECT_EQ(inside->old_disk_io_info["sdd1"].reads_completed, 5U);
    records.accepted = LOG_PRIORITY_ERROR;
    EXPECT_EQ(Register({"/", "/run"}, Disks("sda 9 9 9, tmpfs 9 9 9")),
              "disks sdc1 sdd1 md0 sda2 tmpfs");
    EXPECT_EQ(inside->old_disk_io_info["sda2"].reads_completed, 1U);
    Start();
    const std::string no_file = " failed, error_msg: No such file or directory.; ";
    EXPECT_EQ(Register({"/", "/none", "/run"}),
              "WRONG; file_path is not exist, file_path: /none.; GetRealFilePath failed, ret: "
              "-281.; GetDiskNameByFileName failed, file_path: /none, ret: -281.; disks sda2");
    kernel.Write("/proc/diskstats", "8 0 sdc 1 2\n8 0 sdd 1 2 3 4 5 6 7 8 9 10 11\n8 0 sde 1\n");
    EXPECT_EQ(Register({"/raid", "/new", "/data"}),
              "FAILED; sscanf failed, buf: sdc 1 2.; SetDiskIODefaultStat failed, file_path: sdc1, "
              "ret: -3353.; sscanf failed, buf: sde 1.; SetDiskIODefaultStat failed, file_path: "
              "/new, ret: -3353.; disks sda2 sdd1");
    kernel.Remove("/proc");
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
    std::string listed;
    for (int i = 101; i <= 229; ++i) {
        const std::string disk = " x" + std::to_string(i);
        members += disk + "[0]";
        lines += disk + " 1 1 1,";
        listed += i < 229 ? disk : "";
    }
    kernel.Write("/proc/mdstat", "md0 : active raid0" + members);
    EXPECT_EQ(Register({"/raid"}, Disks(lines)),
              "m_disk_name is full, disk_name: x229.; disks" + listed);
    EXPECT_EQ(inside->old_disk_io_info.size(), 129U);
}

TEST_F(Disk, Load) {
    const struct {
        std::string before;  // reads, writes, busy
        std::string now;
        uint64_t seconds;
        std::string seen;
    } cases[] = {{"1000 500 20000", "1600 900 21500", 10, "15 100"},
                 {"0 0 0", "1 2 1999", 2, "99 1"},
                 {"0 0 0", "0 0 1400", 1, "100 0"},
                 {"0 0 1000", "0 0 0", 1, "100 0"},
                 {"0 0 0", "0 0 42949673010", 1, "5 0"},  // cut to 32 bits before it is capped
                 {"5 0 0", "4 0 0", 1, "0 4294967295"},
                 {"4294967290 0 0", "10 4294967300 0", 1, "0 20"},
                 {"0 0 0", "9 9 9", uint64_t{1} << 32, "0 0"},
                 {"0 0 0", "9 9 9", uint64_t{1} << 61, "0 0"}};  // times 1000: a multiple of 2^64
    for (const auto& c : cases) {
        Start();
        Register({"/data"}, Disks("sdb " + c.before));
        EXPECT_EQ(Measure("/data", Disks("sdb " + c.now), c.seconds), "/data sdb " + c.seen);
    }
}

TEST_F(Disk, LoadOfOneDirectory) {
    Register({"/", "/data/db"});
    const CorvaneCommon::DiskIOInfo& stored = inside->old_disk_io_info["sdb"];
    const KernelFiles later = Disks("sda 1 2 40, sdb 600 400 1500");
    EXPECT_EQ(Measure("/data/db", later, 10, false), "/data/db sdb 15 100");
    EXPECT_EQ(Measure("/link", {}, 10), "/link sdb 15 100");  // from the same base
    EXPECT_EQ(Measure("/data"), "/data sdb 0 0");             // the same disk, nothing since
    EXPECT_EQ(Measure("/"), "/ sda2 4 3");                    // a partition, by its disk
    EXPECT_EQ(Measure("/data", Disks("sdb 650 400 1700")), "/data sdb 20 50");
    EXPECT_EQ(Words(stored.max_disk_io_rate, stored.max_disk_iops), " 20 100");
    EXPECT_EQ(SEE(m->ClearDiskIOPhasedcacheValue(log)), "");
    EXPECT_EQ(Words(stored.max_disk_io_rate, stored.max_disk_iops), " 0 0");
    // Faults keep the result and the base, and say why.
    const std::string no_line = "; GetDiskIOInfo failed, ret: -281, file_path: /run.";
    const std::string of_data = "; GetDiskIOInfo failed, ret: -3353, file_path: /data.";
    EXPECT_EQ(Measure("/none"),
              "WRONG; file_path is not exist, file_path: /none.; GetRealFilePath "
              "failed, file_path: /none, ret: -281.");
    EXPECT_EQ(Measure("/run"), "WRONG" + no_line + no_line);
    EXPECT_EQ(
        Measure("/new", Disks("sdb 5 5 5, sde 1 1 1")),
        "NO SAMPLE; can not get old disk info, disk device name: sde.; CalcDiskIOInfo failed, "
        "ret: -3609, file_path: /new.");
    EXPECT_EQ(Measure("/data", {{"/proc/diskstats", "8 16 sdb 201 2 3 4 5 6 7 8 9 10\n"}}),
              "FAILED; sscanf failed, buf: sdb 201 2 3 4 5 6 7 8 9 10." + of_data + of_data);
    kernel.Remove("/proc/diskstats");
    EXPECT_EQ(Measure("/data"),
              "FAILED; fopen /proc/diskstats failed, error_msg: No such file or directory.; "
              "ReadFromFile failed, file: /proc/diskstats.; GetRawDiskIOInfo failed, ret: -3353." +
                  of_data + of_data);
    EXPECT_EQ(Measure("/data", Disks("sdb 651 400 1710")), "/data sdb 1 1");
    CorvaneCommon::DiskIOInfoResult load;
    EXPECT_EQ(SEE(m->GetDiskIOMonitorInfo(&load, "/data/", log)),
              "WRONG; /data/ Can not find Disk IO Result Info.");
}

TEST_F(Disk, LoadOfAnArrayIsThatOfItsBusiestMembers) {
    Register({"/raid/a", "/raid/b"});
    EXPECT_EQ(Measure("/raid/a", Disks("sdc 200 100 400, sdd 100 0 600")), "/raid/a - 60 300");
    EXPECT_EQ(Measure("/raid/b"), "/raid/b - 0 0");  // the same members, nothing since
    // A member that fails does not stop the ones behind it.
    EXPECT_EQ(Measure("/raid/a", Disks("sdd 150 0 800, md0 0 0 10")),
              "GetDiskIOInfo failed, ret: -281, disk: sdc1.; /raid/a - 20 50");
    inside->old_disk_io_info.erase("sdc1");
    EXPECT_EQ(Measure("/raid/a", Disks("sdc 1 1 1, sdd 160 0 900")),
              "can not get old disk info, disk device name: sdc1.; /raid/a - 10 10");
    inside->raid_to_disk_map["md0"].clear();  // without members: a disk
    records.accepted = LOG_PRIORITY_DEBUG;
    EXPECT_EQ(Measure("/raid/b", Disks("md0 3 0 20")),
              "DEBUG file_path: /raid/b raid disk empty.; DEBUG device_name: md0, "
              "new_reads_completed: 3, new_writes_completed: 0, old_reads_completed: 0, "
              "old_writes_completed: 0, new_time_spent_doing_ios: 20, old_time_spent_doing_ios: 0, "
              "time_interval:  1; /raid/b md0 2 3");
    inside->SetRaidIOStatInfo("", "md0", log);
    EXPECT_EQ(records.Take().back(), "DEBUG disk: md0 raid disk empty.");
}

TEST_F(Disk, LoadOfAListTakesEachDiskOnceAndEachArrayPerDirectory) {
    Register({"/", "/data/db", "/raid/a", "/raid/b"});
    const auto calc = [&](const std::vector<const char*>& list) {
        return SEE(m->CalcDiskIOMonitorInfo(list, 1, true, log));
    };
    const auto sample = [](const std::string& disk, const char* reads, const char* busy) {
        return "DEBUG device_name: " + disk + ", new_reads_completed: " + reads +
               ", new_writes_completed: 1, old_reads_completed: 0, old_writes_completed: 0, "
               "new_time_spent_doing_ios: " +
               busy +
               ", old_time_spent_doing_ios: 0, "
               "time_interval:  1; ";
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
            "DEBUG file_path: /data, disk_io_rate: 3, disk_iops: 201; Can not find disk_name, "
            "file_path: /var.; Can not find disk_name, file_path: /var.; GetDiskIOInfo failed, "
            "ret: -281, file_path: /var.; DEBUG file_path: /new not raid disk.; can not get "
            "old disk info, disk device name: sde.; CalcDiskIOInfo failed, ret: -3609, "
            "file_path: /new.; DEBUG file_path: /data/db not raid disk.; DEBUG file_path: "
            "/link, disk_io_rate: 3, disk_iops: 201; /data sdb 3 201; /link sdb 3 201; "
            "/raid/a - 5 4");
    records.accepted = LOG_PRIORITY_ERROR;
    // A path that cannot be resolved ends the call.
    EXPECT_EQ(calc({"/data", "/none", "/"}),
              "WRONG; file_path is not exist, file_path: /none.; GetRealFilePath failed, "
              "file_path: /none, ret: -281.; /data sdb 0 0");
    kernel.ResetCounts();
    EXPECT_EQ(calc({"/data", "/data/db"}), "/data/db sdb 0 0");
    EXPECT_EQ(kernel.Count(KernelCall::Open), 2);  // one a directory
}

TEST_F(Disk, SpaceIsTheHostsFigure) {
    const std::string deep = "/" + std::string(200, 'd');
    kernel.MakeFolder(deep);
    const auto space = [&](const std::string& path, const DiskSize& answer) {
        disk_size = answer;
        return SEE(m->GetDiskMonitorInfo(&out.space, path.c_str(), log));
    };
    EXPECT_EQ(space(deep, {0, 102400, 40960}),
              "asked for " + deep + "; space " + deep.substr(0, 127) + " 102400 61440");
    EXPECT_EQ(space("/data", {0, 1, 2}), "asked for /data; space /data 1 18446744073709551615");
    EXPECT_EQ(space("/data", {-7, 9, 1}),
              "-7; asked for /data; GetDiskSize is failed, ret: -7, file_path: /data.; space /data "
              "9 0");
    EXPECT_EQ(space("/none", {0, 5, 1}),
              "WRONG; file_path is not exist, file_path: /none.; space /none 0 0");
}

}  // namespace
}  // namespace corvane_test
