// Disks behind directories with the strict reading: by device number, in registration and in load.
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "monitor_physical_util.h"
#include "monitor_physical_util_internal.h"
#include "monitor_physical_util_log.h"
#include "monitor_physical_util_reading.h"
#include "monitor_physical_util_text.h"

namespace CorvaneCommon {

namespace {

/// A device as /proc/diskstats lists it. An empty name: none.
struct Device {
    uint32_t major_number = 0;
    uint32_t minor_number = 0;
    std::string name;
};

/// The name at the start of a line found in /proc/diskstats.
std::string NameAt(const char* line) {
    return {line, strcspn(line, " \n")};
}

Device FindDevice(char* proc_diskstats, uint32_t major_number, uint32_t minor_number) {
    const char* const line = FindDeviceLine(proc_diskstats, major_number, minor_number);
    return line == nullptr ? Device() : Device{major_number, minor_number, NameAt(line)};
}

Device FindDevice(char* proc_diskstats, const std::string& name) {
    const char* line = FindDeviceLine(proc_diskstats, name.c_str());
    if (line == nullptr) {
        return {};
    }
    while (line != proc_diskstats && line[-1] != '\n') {
        --line;
    }
    uint64_t major_number = 0;
    uint64_t minor_number = 0;
    ScanNumber(line, major_number);
    ScanNumber(line, minor_number);
    return {static_cast<uint32_t>(major_number), static_cast<uint32_t>(minor_number), name};
}

/// The disk that a partition lies on, from /sys/dev/block; the device itself when it is no
/// partition, or where that is not there.
Device WholeDisk(char* proc_diskstats, const Device& device) {
    const std::string path = "/sys/dev/block/" + std::to_string(device.major_number) + ":" +
                             std::to_string(device.minor_number);
    if (access((path + "/partition").c_str(), F_OK) != 0) {
        return device;
    }
    // A link to .../sda/sda1, where "!" stands for a "/" in a name.
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof(target));
    std::string disk(target, length < 0 ? 0 : static_cast<size_t>(length));
    disk.erase(std::min(disk.rfind('/'), disk.size()));
    disk.erase(0, disk.rfind('/') + 1);
    std::replace(disk.begin(), disk.end(), '!', '/');
    Device whole = FindDevice(proc_diskstats, disk);
    return whole.name.empty() ? device : whole;
}

/// Whether a device is a path of an NVMe disk of several: nvme1c0n1 of nvme1n1. The kernel counts
/// what goes through such a disk at its paths.
bool IsPathOf(const std::string& device, const std::string& disk) {
    const size_t space = disk.rfind('n');
    if (disk.compare(0, 4, "nvme") != 0 || space < 4 || device.size() < disk.size() + 2 ||
        device.compare(0, space, disk, 0, space) != 0 || device[space] != 'c') {
        return false;
    }
    const size_t digits = device.find_first_not_of("0123456789", space + 1);
    return digits != std::string::npos && digits > space + 1 &&
           device.compare(digits, std::string::npos, disk, space, std::string::npos) == 0;
}

std::vector<std::string> WithPaths(const char* proc_diskstats, const std::string& disk) {
    std::vector<std::string> lines = {disk};
    if (disk.compare(0, 4, "nvme") != 0) {
        return lines;
    }
    for (const char* line = proc_diskstats; line != nullptr;) {
        const char* name = line;
        if (SkipNumbers(name, 2) && IsPathOf(NameAt(SkipSpace(name)), disk)) {
            lines.push_back(NameAt(SkipSpace(name)));
        }
        line = strchr(line, '\n');
        line = line == nullptr ? nullptr : line + 1;
    }
    return lines;
}

/// Whether a mount point is a path or above it.
bool IsAbove(const std::string& mount_point, const char* path) {
    const size_t length = mount_point.size();
    return strncmp(path, mount_point.c_str(), length) == 0 &&
           (mount_point == "/" || path[length] == '/' || path[length] == '\0');
}

/// The mount that holds a resolved path: the deepest, and of several there the last.
MountEntry FindMount(char* mount_info, const char* path) {
    MountEntry found;
    for (char *line = mount_info, *next = nullptr; line != nullptr; line = next) {
        next = CutLine(line);
        MountEntry entry;
        if (ParseMountEntry(line, entry) && IsAbove(entry.mount_point, path) &&
            entry.mount_point.size() >= found.mount_point.size()) {
            found = std::move(entry);
        }
    }
    return found;
}

std::string DecodeEscapes(const std::string& text) {
    constexpr size_t OCTAL_DIGITS = 3;
    constexpr int OCTAL = 8;
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        const std::string digits = text.substr(i + 1, OCTAL_DIGITS);
        if (text[i] == '\\' && digits.size() == OCTAL_DIGITS &&
            digits.find_first_not_of("01234567") == std::string::npos) {
            decoded += static_cast<char>(strtol(digits.c_str(), nullptr, OCTAL));
            i += OCTAL_DIGITS;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

/// The next word up to a blank or the line's end; empty at the end.
std::string TakeWord(const char*& line) {
    line += strspn(line, " \t");
    const size_t length = strcspn(line, " \t\n");
    std::string word(line, length);
    line += length;
    return word;
}

}  // namespace

bool ParseArrayLine(const char* line, std::string& array, std::vector<std::string>& members) {
    members.clear();
    if (strncmp(line, "md", 2) != 0) {
        return false;
    }
    array = TakeWord(line);
    if (TakeWord(line) != ":") {
        return false;
    }
    for (std::string word = TakeWord(line); !word.empty(); word = TakeWord(line)) {
        // sdb1[1], sdc1[2](F): failed and spare members count, too.
        const size_t bracket = word.find('[');
        if (bracket != std::string::npos && bracket > 0) {
            members.push_back(word.substr(0, bracket));
        }
    }
    return true;
}

bool ParseMountEntry(const char* line, MountEntry& entry) {
    constexpr int WORDS_BEFORE_MOUNT_POINT = 4;  // id, parent, device number, root
    for (int i = 0; i < WORDS_BEFORE_MOUNT_POINT; ++i) {
        TakeWord(line);
    }
    entry.mount_point = DecodeEscapes(TakeWord(line));
    // Options and tags, of any number, end at a dash.
    for (std::string word = TakeWord(line); word != "-"; word = TakeWord(line)) {
        if (word.empty()) {
            return false;
        }
    }
    entry.file_system = DecodeEscapes(TakeWord(line));
    entry.source = DecodeEscapes(TakeWord(line));
    return !entry.mount_point.empty() && !entry.file_system.empty();
}

void CMonitorPhysicalUtil::SetMembersOfArrays() {
    m_raid_to_disk_map.clear();
    KernelText text(WholeText());
    // Without the md driver there is no such file, and that is no fault.
    const int32_t ret = text.Fill([](char* mdstat, uint32_t length) {
        return ReadFromFile(mdstat, length, "/proc/mdstat", nullptr, Buffer::Unset);
    });
    if (ret != 0) {
        return;
    }
    for (char *line = text.Data(), *next = nullptr; line != nullptr; line = next) {
        next = CutLine(line);
        std::string array;
        std::vector<std::string> members;
        if (ParseArrayLine(line, array, members) && !members.empty()) {
            m_raid_to_disk_map.insert_or_assign(array, std::move(members));
        }
    }
}

int32_t CMonitorPhysicalUtil::FindDirectoryDevice(const char* file_path, uint64_t& device_number,
                                                  std::string& file_system,
                                                  LogCategory* log_handle) {
    struct stat status = {};
    if (stat(file_path, &status) != 0) {
        const int error = errno;
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "stat %s failed, error_msg: %s.", file_path,
                    strerror(error));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    device_number = status.st_dev;
    if (major(status.st_dev) != 0) {
        return 0;
    }
    // A number that the file system made up: its mount tells the device, if it has one.
    char real_file_path[PATH_MAX];
    if (realpath(file_path, real_file_path) == nullptr) {
        const int error = errno;
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "%s can not resolved to real path, error_msg: %s.", file_path, strerror(error));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* mount_info, uint32_t length) {
        return ReadFromFile(mount_info, length, "/proc/self/mountinfo", log_handle, Buffer::Unset);
    });
    if (ret != 0) {
        return ret;
    }
    const MountEntry mount = FindMount(text.Data(), real_file_path);
    device_number = 0;
    file_system = mount.file_system;
    struct stat source = {};
    if (!mount.source.empty() && mount.source.front() == '/' &&
        stat(mount.source.c_str(), &source) == 0 && S_ISBLK(source.st_mode)) {
        device_number = source.st_rdev;
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::SetDiskTarget(const char* file_path, uint64_t device_number,
                                            std::string file_system, char* proc_diskstats,
                                            LogCategory* log_handle) {
    DiskTarget target;
    target.file_system = std::move(file_system);
    if (device_number == 0) {
        m_disk_target.insert_or_assign(file_path, std::move(target));
        return 0;
    }
    const uint32_t major_number = major(device_number);
    const uint32_t minor_number = minor(device_number);
    const Device device = FindDevice(proc_diskstats, major_number, minor_number);
    if (device.name.empty()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "Can not find device %u:%u in /proc/diskstats, file_path: %s.", major_number,
                    minor_number, file_path);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    target.disk_name = device.name;
    const Device whole = WholeDisk(proc_diskstats, device);
    const auto array = m_raid_to_disk_map.find(whole.name);
    if (array == m_raid_to_disk_map.end()) {
        target.lines = WithPaths(proc_diskstats, whole.name);
    } else {
        for (const std::string& member : array->second) {
            const Device part = FindDevice(proc_diskstats, member);
            if (!part.name.empty()) {
                target.lines.push_back(WholeDisk(proc_diskstats, part).name);
            }
        }
    }
    if (target.lines.empty()) {
        target.lines.push_back(whole.name);  // an array without members counts what it does itself
    }
    const int32_t ret = SetFirstSamples(target, proc_diskstats, log_handle);
    if (ret == 0) {
        m_disk_target.insert_or_assign(file_path, std::move(target));
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::SetFirstSamples(const DiskTarget& target, char* proc_diskstats,
                                              LogCategory* log_handle) {
    for (const std::string& name : target.lines) {
        char* const line = FindDeviceLine(proc_diskstats, name.c_str());
        DiskIOInfo disk_io_info;
        if (line == nullptr || !ParseDeviceLine(line, disk_io_info)) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "sscanf failed, file: /proc/diskstats, disk: %s.", name.c_str());
            return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
        }
        m_old_disk_io_info.try_emplace(name, disk_io_info);
    }
    for (int32_t row = 0; row < m_total_disk_num; ++row) {
        if (target.disk_name == m_disk_name[row]) {
            return 0;
        }
    }
    ListDisk(target.disk_name.c_str(), log_handle);
    return 0;
}

int32_t CMonitorPhysicalUtil::SetDisksByNumber(const char** file_path, uint32_t file_path_num,
                                               LogCategory* log_handle) {
    // One text at a time: the directories' devices first, then the disks.
    struct Found {
        const char* file_path;
        uint64_t device_number;
        std::string file_system;
    };
    std::vector<Found> directories;
    int32_t first_failure = 0;
    for (uint32_t i = 0; i < file_path_num; ++i) {
        if (IsEmpty(file_path[i])) {
            continue;
        }
        Found found = {file_path[i], 0, ""};
        const int32_t ret =
            FindDirectoryDevice(file_path[i], found.device_number, found.file_system, log_handle);
        if (ret == 0) {
            directories.push_back(std::move(found));
        } else if (first_failure == 0) {
            first_failure = ret;
        }
    }
    SetMembersOfArrays();
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* proc_diskstats, uint32_t length) {
        return GetRawDiskIOInfo(proc_diskstats, length, log_handle);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawDiskIOInfo failed, ret: %d.", ret);
        return ret;
    }
    for (Found& found : directories) {
        const int32_t failure =
            SetDiskTarget(found.file_path, found.device_number, std::move(found.file_system),
                          text.Data(), log_handle);
        if (first_failure == 0) {
            first_failure = failure;
        }
    }
    return first_failure;
}

const CMonitorPhysicalUtil::DiskTarget* CMonitorPhysicalUtil::FindDiskTarget(
    const char* file_path, LogCategory* log_handle) {
    auto found = m_disk_target.find(file_path);
    if (found != m_disk_target.end()) {
        return &found->second;
    }
    // Spelled in another way than it was registered: that costs a look at the directory, once.
    char real_file_path[PATH_MAX];
    if (realpath(file_path, real_file_path) != nullptr) {
        found = m_disk_target.find(real_file_path);
    }
    if (found == m_disk_target.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "Can not find disk_name, file_path: %s.",
                    file_path);
        return nullptr;
    }
    return &m_disk_target.emplace(file_path, found->second).first->second;
}

int32_t CMonitorPhysicalUtil::GetDiskNameOfTarget(char* disk_name, uint32_t disk_name_length,
                                                  const char* file_path, LogCategory* log_handle) {
    const DiskTarget* const target = FindDiskTarget(file_path, log_handle);
    if (target == nullptr) {
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (target->disk_name.empty()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "file_path: %s has no block device, file system: %s.", file_path,
                    target->file_system.c_str());
        return COMMON_ERR_NO_BLOCK_DEVICE;
    }
    CopyText(disk_name, disk_name_length, target->disk_name.c_str());
    return 0;
}

}  // namespace CorvaneCommon
