// The strict reading of disks: devices behind directories, mounts, arrays, load.
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>

#include "host.h"
#include "monitor_physical_util_internal.h"

namespace corvane_test {
namespace {

using namespace CorvaneCommon;

/// In the order of /proc/diskstats, each with its disk when it is a partition. The n-th is n
/// percent busy with n reads a second. nvme1c12n1 is a path of nvme1n1; /sys does not know sdaa1.
const char* const DEVICES =
    "8:0 sda,8:1 sda1 sda,8:16 sdb,8:17 sdb1 sdb,8:32 sdc,8:33 sdc1 sdc,259:0 nvme0n1,"
    "259:1 nvme0n1p1 nvme0n1,259:2 nvme1n1,259:3 nvme1c12n1,253:10 dm-10,253:1 dm-1,9:1 md1,"
    "9:127 md127,259:4 md127p1 md127,104:0 cciss/c0d0,104:1 cciss/c0d0p1 cciss/c0d0,7:10 loop10,"
    "65:160 sdaa,65:161 sdaa1,9:126 md_data,9:5 md5,259:5 nvme1c3n12,";

const char* const MOUNTS =
    "22 28 0:21 / /proc rw - proc proc rw\n"
    "28 1 0:26 / / rw,relatime shared:1 - overlay overlay rw\n"
    "30 28 0:30 /@home /my\\040home rw master:1 propagate_from:2 - btrfs /dev/mapper/vg-data rw\n"
    "31 28 0:31 / /tmp rw - tmpfs tmpfs rw\n"
    "32 28 0:32 / /nas rw - nfs4 nas:/vol/7 rw\n"
    "33 28 0:33 / /share rw - cifs //nas/share rw\n"
    "34 28 0:34 / /lost rw - btrfs /dev/lost rw\n";

class StrictDisk : public HostTest {
protected:
    StrictDisk() {
        kernel.Write({{"/proc/self/mountinfo", MOUNTS},
                      {"/dev/dm-1", ""},
                      {"/proc/mdstat",
                       "Personalities : [raid1] [linear]\n"
                       "md127 : active (auto-read-only) raid1 sdc1[1] sdb1[0](F) gone[2]\n"
                       "      8380416 blocks [2/2] [UU]\n\n"
                       "md_data : active linear md1[0] loop10[1] md_data[2]\n"
                       "md1 : active raid1 sda1[0]\n"
                       "md5 : inactive\nunused devices: <none>\n"}});
        kernel.MakeLink("/dev/mapper/vg-data", "../dm-1");
        kernel.status["/dev/dm-1"].st_mode = S_IFBLK;
        kernel.status["/dev/dm-1"].st_rdev = makedev(253, 1);
        for (const auto& [number, name, disk] : Devices()) {
            const auto folder = [](std::string part) {
                std::replace(part.begin(), part.end(), '/', '!');
                return "/" + part;
            };
            if (!disk.empty()) {
                const std::string place = "devices/pci" + folder(disk) + folder(name);
                kernel.Write("/sys/" + place + "/partition", "1\n");
                kernel.MakeLink("/sys/dev/block/" + number, "../../" + place);
            }
        }
        Elapse(0);
        Start();
        m->SetStrictReading(true, nullptr);
    }
    static std::vector<std::array<std::string, 3>> Devices() {
        std::vector<std::array<std::string, 3>> devices;
        std::istringstream list(DEVICES);
        for (std::string text; std::getline(list, text, ',');) {
            auto& [number, name, disk] = devices.emplace_back();
            std::istringstream(text) >> number >> name >> disk;
        }
        return devices;
    }
    /// What /proc/diskstats says after some seconds of load.
    void Elapse(uint64_t seconds) {
        std::string text;
        uint64_t n = 0;
        for (auto& [number, name, disk] : Devices()) {
            n += seconds;
            text += DiskLine(name, n, 0, 10 * n, number.replace(number.find(':'), 1, " "));
        }
        kernel.Write("/proc/diskstats", text);
    }
    /// A folder on the device, which is looked at.
    void MakeFolder(const std::string& path, unsigned major, unsigned minor) {
        kernel.MakeFolder(path);
        kernel.status[path].st_dev = makedev(major, minor);
        paths.push_back(path);
    }
    std::string Register(std::vector<const char*> directories) {
        SEE(0);
        return See([&] {
            return m->SetDiskInfo(directories.data(), static_cast<uint32_t>(directories.size()),
                                  log);
        });
    }
    std::string Measure(const char* path, bool refresh = true) {
        return SEE(m->CalcDiskIOMonitorInfo(path, 1, refresh, log));
    }
};

TEST_F(StrictDisk, EveryKindOfDevice) {
    const std::string deep = "/" + std::string(200, 'd') + "/" + std::string(200, 'e');
    const struct {
        std::string path;
        unsigned major, minor;
        const char* name;      // of its device, or why it has none
        const char* measured;  // disk, percent, operations
    } cases[] = {
        {"/part", 8, 1, "sda1", "sda 1 1"},
        {"/nvme", 259, 1, "nvme0n1p1", "nvme0n1 7 7"},
        {"/paths", 259, 2, "nvme1n1", "nvme1n1 10 10"},
        {"/lvm", 253, 1, "dm-1", "dm-1 12 12"},
        {"/array", 9, 127, "md127", "md127 5 5"},
        {"/array/part", 259, 4, "md127p1", "md127 5 5"},
        {"/nested", 9, 126, "md_data", "md_data 18 18"},
        {"/inactive", 9, 5, "md5", "md5 22 22"},
        {"/cciss", 104, 1, "cciss/c0d0p1", "cciss/c0d0 16 16"},
        {"/loop", 7, 10, "loop10", "loop10 18 18"},
        {"/no sys", 65, 161, "sdaa1", "sdaa1 20 20"},
        {deep, 65, 160, "sdaa", "sdaa 19 19"},
        {"/my home/x", 0, 40, "dm-1", "dm-1 12 12"},
        {"/", 0, 26, "NO DEVICE; file_path: / has no block device, file system: overlay.", "WRONG"},
        {"/tmp", 0, 31, "NO DEVICE; file_path: /tmp has no block device, file system: tmpfs.",
         "WRONG"},
        {"/nas", 0, 32, "NO DEVICE; file_path: /nas has no block device, file system: nfs4.",
         "WRONG"},
        {"/share/x", 0, 33,
         "NO DEVICE; file_path: /share/x has no block device, file system: cifs.", "WRONG"},
    };
    std::vector<const char*> all = {nullptr, ""};
    for (const auto& c : cases) {
        MakeFolder(c.path, c.major, c.minor);
        all.push_back(c.path.c_str());
    }
    EXPECT_EQ(Register(all),
              "disks sda1 nvme0n1p1 nvme1n1 dm-1 md127 md127p1 md_data md5 cciss/c0d0p1 loop10 "
              "sdaa1 sdaa");
    Elapse(1);
    kernel.ResetCounts();
    EXPECT_EQ(m->CalcDiskIOMonitorInfo(all, 1, true, nullptr), 0);
    EXPECT_EQ(kernel.Count(KernelCall::Open), 1);
    EXPECT_EQ(kernel.Count(KernelCall::RealPath) + kernel.Count(KernelCall::Stat), 0);
    SEE(0);
    for (const auto& c : cases) {
        char name[MONITOR_NAME_LENGTH] = {};
        const std::string seen =
            SEE(m->GetDiskNameByFileName(name, sizeof(name), c.path.c_str(), log));
        EXPECT_EQ(name + seen, c.name);
        DiskIOInfoResult io;
        const int32_t status = m->GetDiskIOMonitorInfo(&io, c.path.c_str(), nullptr);
        EXPECT_EQ(status == 0 ? std::string(io.disk_name) + Words(io.disk_io_rate, io.disk_iops)
                              : StatusName(status),
                  c.measured)
            << c.path;
    }
    EXPECT_EQ(Measure("/tmp"),
              "NO DEVICE; file_path: /tmp has no block device, file system: tmpfs.");
}

TEST(StrictMount, IsFoundAsTheKernelWalks) {
    const struct {
        const char* table;
        std::map<std::string, std::string> sources;  // by path
    } cases[] = {
        {MOUNTS,
         {{"/proc/1", "proc"},
          {"/my home", "/dev/mapper/vg-data"},
          {"/my homes", "overlay"},
          {"/", "overlay"}}},
        // Hidden by what was mounted above it later; two at one place; one in the other.
        {"5 4 8:1 / /data/x - ext4 a\n4 1 8:2 / / - ext4 b\n6 4 8:3 / /data - ext4 c\n"
         "7 6 8:4 / /data - ext4 d\n8 7 8:5 / /data/y - ext4 e\n",
         {{"/data/x", "d"}, {"/data/y/z", "e"}, {"/dat", "b"}}},
        // A chroot without an entry of its own.
        {"5 4 8:1 / /proc - proc a\n6 5 8:1 / /proc/fs - x b", {{"/proc/fs/x", "b"}, {"/x", ""}}},
        {"1 1 0:1 / / - rootfs a\n2 1 8:1 / / - ext4 b\n", {{"/x", "b"}}},
        // No tree at all, and lines that are none.
        {"5 6 8:1 / /a - x a\n6 5 8:1 / /a - x b\n7 5 / /a\nx\n\n8 9 8:1 / - x\n", {{"/a", ""}}},
        {"1 2 8:1 / /\\011\\134x\\12 opt - x \\303\\244\\08", {{"/\t\\x\\12", "ä\\08"}}},
    };
    for (const auto& c : cases) {
        std::vector<MountEntry> mounts;
        std::istringstream lines(c.table);
        for (std::string line; std::getline(lines, line);) {
            MountEntry entry;
            if (ParseMountEntry(line.c_str(), entry)) {
                mounts.push_back(entry);
            }
        }
        for (const auto& [path, source] : c.sources) {
            const MountEntry* const mount = FindMount(mounts, path.c_str());
            EXPECT_EQ(mount == nullptr ? "" : mount->source, source) << c.table << path;
        }
    }
}

TEST_F(StrictDisk, RegisteredAnewLooksAnew) {
    MakeFolder("/data", 8, 1);
    MakeFolder("/data/sub", 8, 1);
    MakeFolder("/lost", 0, 34);
    MakeFolder("/hidden", 8, 99);
    MakeFolder("/tmp", 0, 31);
    kernel.MakeLink("/link", "/data");
    paths.insert(paths.end(), {"/link", "/data/"});
    EXPECT_EQ(Register({"/lost", "/gone", "/hidden", "/link", "/tmp"}),
              "WRONG; stat /dev/lost failed, error_msg: No such file or directory, file_path: "
              "/lost.; /gone can not resolved to real path, error_msg: No such file or directory.; "
              "Can not find device 8:99 in /proc/diskstats, file_path: /hidden.; disks sda1");
    Elapse(1);
    EXPECT_EQ(Measure("/data/"), "/data/ sda 1 1");
    EXPECT_EQ(Measure("/data/sub"), "WRONG; Can not find disk_name, file_path: /data/sub.");
    // Who asks for its name registers it; its disk is known already.
    EXPECT_EQ(SEE(m->GetDiskNameByFileName(out.text, 3, "/data/sub", log)), "text sd");
    Elapse(3);
    EXPECT_EQ(Measure("/data/sub"), "/data/sub sda 2 2");
    EXPECT_EQ(Measure("/link", false), "/link sda 0 0");
    // All its spellings follow it to another disk, to none and to one that is not known.
    kernel.status["/data"].st_dev = makedev(8, 17);
    EXPECT_EQ(Register({"/link"}), "disks sda1 sdb1");
    Elapse(4);
    EXPECT_EQ(Measure("/data/"), "/data/ sdb 3 3");
    kernel.status["/data"].st_dev = makedev(0, 31);
    kernel.Write("/proc/self/mountinfo", "1 0 0:1 / /data rw - tmpfs tmpfs rw\n");
    EXPECT_EQ(Register({"/data"}), "");
    EXPECT_EQ(Measure("/data/"),
              "NO DEVICE; file_path: /data/ has no block device, file system: tmpfs.; /data/ -");
    kernel.Write("/proc/self/mountinfo", "");
    EXPECT_EQ(Register({"/link"}),
              "WRONG; Can not find the mount of /link in /proc/self/mountinfo.");
    EXPECT_EQ(Measure("/link"), "WRONG; Can not find disk_name, file_path: /link.; /link -");
}

TEST_F(StrictDisk, DisksThatGoAndCountersThatFall) {
    MakeFolder("/array", 9, 127);
    MakeFolder("/part", 8, 1);
    EXPECT_EQ(Register({"/array", "/part"}), "disks md127 sda1");
    const std::vector<const char*> both = {"/array", "/part"};
    const auto list = [&] { return m->CalcDiskIOMonitorInfo(both, 1, true, log); };
    const std::string anew = "is back or its counters fell, it is measured anew.; ";
    Elapse(5);
    EXPECT_EQ(See(list), "/array md127 25 25; /part sda 5 5");
    // The busier member goes, then all.
    kernel.Write("/proc/diskstats", DiskLine("sdb", 16, 2, 160) + DiskLine("sda", 4, 9, 90));
    EXPECT_EQ(See(list),
              "Can not find disk sdc in /proc/diskstats.; disk sda " + anew +
                  "GetDiskIOInfo failed, ret: -3609, file_path: /part.; /array md127 1 3; /part -");
    kernel.Write("/proc/diskstats", "8 0 sda 1 2 3\n");
    EXPECT_EQ(See(list),
              "Can not find disk sdc in /proc/diskstats.; Can not find disk sdb in "
              "/proc/diskstats.; GetDiskIOInfo failed, ret: -281, file_path: /array.; sscanf "
              "failed, file: /proc/diskstats, disk: sda.; GetDiskIOInfo failed, ret: -3353, "
              "file_path: /part.; /array -");
    Elapse(9);
    EXPECT_EQ(
        See([&] { return m->CalcDiskIOMonitorInfo("/part", 1, false, log); }),
        "NO SAMPLE; disk sda " + anew + "GetDiskIOInfo failed, ret: -3609, file_path: /part.");
    EXPECT_EQ(See(list), "disk sdc " + anew + "disk sdb " + anew +
                             "GetDiskIOInfo failed, ret: -3609, file_path: /array.; disk sda " +
                             anew + "GetDiskIOInfo failed, ret: -3609, file_path: /part.");
    Elapse(10);
    EXPECT_EQ(See(list), "/array md127 5 5; /part sda 1 1");
    const std::string unread =
        "FAILED; fread failed, file: /proc/diskstats, errno: 5.; ReadFromFile failed, file: "
        "/proc/diskstats.; GetRawDiskIOInfo failed, ret: -3353.; ";
    kernel.Fail(KernelCall::Read, 1, EIO, 60);
    EXPECT_EQ(Measure("/part"), unread + "/part -");
    kernel.Fail(KernelCall::Read, 1, EIO, 60);
    EXPECT_EQ(SEE(m->CalcDiskIOMonitorInfo({"/array"}, 1, true, log)), unread + "/array -");
    // No path of NVMe, no array and no disk of a partition that could not be read.
    MakeFolder("/tmp", 0, 31);
    kernel.Fail(KernelCall::Read, 2, EIO, 100);
    EXPECT_EQ(Register({"/array", "/part", "/tmp"}),
              "FAILED; fread failed, file: /proc/mdstat, errno: 5.; ReadFromFile failed, file: "
              "/proc/mdstat.");
    EXPECT_EQ(Measure("/part"), "/part sda 0 0");
    EXPECT_EQ(Measure("/array"), "WRONG; Can not find disk_name, file_path: /array.");
}

}  // namespace
}  // namespace corvane_test
