// Disks behind directories with the strict reading: by device number, in registration and in load.
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
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

constexpr const char* MDSTAT_PATH = "/proc/mdstat";
constexpr const char* ARRAY_PREFIX = "md";

/// The name at the start of a line found in /proc/diskstats.
std::string NameAt(const char* line) {
    return {line, strcspn(line, " \n")};
}

/// The disk that a partition lies on, from /sys/dev/block; the device itself when it is no
/// partition, or where that is not there. Empty when /proc/diskstats does not list the device.
std::string WholeDisk(char* proc_diskstats, const std::string& device) {
    const char* line = FindDeviceLine(proc_diskstats, device.c_str());
    if (line == nullptr) {
        return "";
    }
    while (line != proc_diskstats && line[-1] != '\n') {
        --line;
    }
    uint64_t major_number = 0;
    uint64_t minor_number = 0;
    ScanNumber(line, major_number);
    ScanNumber(line, minor_number);
    const std::string path =
        "/sys/dev/block/" + std::to_string(major_number) + ":" + std::to_string(minor_number);
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
    return FindDeviceLine(proc_diskstats, disk.c_str()) == nullptr ? device : disk;
}

/// Whether a device is a path of an NVMe disk of several: nvme1c0n1 of nvme1n1. Kernels count what
/// goes through such a disk at its paths.
bool IsPathOf(const std::string& device, const std::string& disk) {
    const size_t space = disk.rfind('n');
    if (device.compare(0, space, disk, 0, space) != 0 || device[space] != 'c') {
        return false;
    }
    const size_t digits = device.find_first_not_of("0123456789", space + 1);
    return digits != std::string::npos && digits > space + 1 &&
           device.compare(digits, std::string::npos, disk, space, std::string::npos) == 0;
}

/// Adds a disk and, of an NVMe disk, its paths.
void AddWithPaths(char* proc_diskstats, const std::string& disk, std::vector<std::string>& lines) {
    constexpr const char* NVME = "nvme";
    lines.push_back(disk);
    if (disk.compare(0, strlen(NVME), NVME) != 0) {
        return;
    }
    for (char* line = proc_diskstats; line != nullptr; line = NextLine(line)) {
        const char* name = line;
        if (SkipNumbers(name, 2) && IsPathOf(NameAt(SkipSpace(name)), disk)) {
            lines.push_back(NameAt(SkipSpace(name)));
        }
    }
}

}  // namespace

bool ParseArrayLine(const char* line, std::string& array, std::vector<std::string>& members) {
    members.clear();
    if (strncmp(line, ARRAY_PREFIX, strlen(ARRAY_PREFIX)) != 0) {
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

int32_t CMonitorPhysicalUtil::SetMembersOfArrays(LogCategory* log_handle) {
    m_raid_to_disk_map.clear();
    if (!IsFileExist(MDSTAT_PATH)) {
        return 0;  // without the md driver there is no such file
    }
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* mdstat, uint32_t length) {
        return ReadFromFile(mdstat, length, MDSTAT_PATH, log_handle, Buffer::Unset);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "ReadFromFile failed, file: %s.", MDSTAT_PATH);
        return ret;
    }
    for (char *line = text.Data(), *next = nullptr; line != nullptr; line = next) {
        next = CutLine(line);
        std::string array;
        std::vector<std::string> members;
        if (ParseArrayLine(line, array, members) && !members.empty()) {
            m_raid_to_disk_map.insert_or_assign(array, std::move(members));
        }
    }
    return 0;
}

std::vector<std::string> CMonitorPhysicalUtil::FindLines(char* proc_diskstats,
                                                         std::string& measured_name,
                                                         const std::string& disk_name) const {
    // Grows while it is walked: members of arrays may be arrays.
    std::vector<std::string> disks = {WholeDisk(proc_diskstats, disk_name)};
    measured_name = disks.front();
    std::vector<std::string> lines;
    for (size_t i = 0; i < disks.size(); ++i) {
        const auto array = m_raid_to_disk_map.find(disks[i]);
        if (array == m_raid_to_disk_map.end()) {
            AddWithPaths(proc_diskstats, disks[i], lines);
            continue;
        }
        for (const std::string& member : array->second) {
            const std::string disk = WholeDisk(proc_diskstats, member);
            if (!disk.empty() && std::find(disks.begin(), disks.end(), disk) == disks.end()) {
                disks.push_back(disk);
            }
        }
    }
    if (lines.empty()) {
        lines.push_back(measured_name);  // an array without members counts what it does itself
    }
    return lines;
}

int32_t CMonitorPhysicalUtil::SetDiskTarget(const RegisteredPath& directory, int32_t arrays_status,
                                            char* proc_diskstats, LogCategory* log_handle) {
    DiskTarget target;
    target.file_system = directory.file_system;
    if (directory.device_number != 0) {
        const uint32_t major_number = major(directory.device_number);
        const uint32_t minor_number = minor(directory.device_number);
        const char* const line = FindDeviceLine(proc_diskstats, major_number, minor_number);
        if (line == nullptr) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "Can not find device %u:%u in /proc/diskstats, file_path: %s.",
                        major_number, minor_number, directory.file_path);
            return COMMON_ERR_INVALID_ARGUMENTS;
        }
        target.disk_name = NameAt(line);
        target.lines = FindLines(proc_diskstats, target.measured_name, target.disk_name);
        if (arrays_status != 0 && target.measured_name.rfind(ARRAY_PREFIX, 0) == 0) {
            return arrays_status;  // of its members nothing is known
        }
        const int32_t ret = SetFirstSamples(target, proc_diskstats, log_handle);
        if (ret != 0) {
            return ret;
        }
    }
    m_disk_target.insert_or_assign(directory.real_path, std::move(target));
    m_disk_real_path.insert_or_assign(directory.file_path, directory.real_path);
    return 0;
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

void CMonitorPhysicalUtil::ForgetDirectory(const char* file_path) {
    const auto known = m_disk_real_path.find(file_path);
    if (known != m_disk_real_path.end()) {
        m_disk_target.erase(known->second);
        m_disk_real_path.erase(known);
    }
}

int32_t CMonitorPhysicalUtil::SetDisksByNumber(const char** file_path, uint32_t file_path_num,
                                               LogCategory* log_handle) {
    // One text at a time: the directories' devices first, then the disks. What cannot be found now
    // is not measured by what it was before.
    std::vector<RegisteredPath> directories;
    std::vector<MountEntry> mounts;
    int32_t first_failure = 0;
    const auto keep_first = [&](int32_t ret) {
        first_failure = first_failure == 0 ? ret : first_failure;
    };
    for (uint32_t i = 0; i < file_path_num; ++i) {
        if (IsEmpty(file_path[i])) {
            continue;
        }
        RegisteredPath directory = {file_path[i], "", 0, ""};
        ForgetDirectory(directory.file_path);
        const int32_t ret = FindDirectory(directory, mounts, log_handle);
        m_disk_target.erase(directory.real_path);
        keep_first(ret);
        if (ret == 0) {
            directories.push_back(std::move(directory));
        }
    }
    const int32_t arrays_status = SetMembersOfArrays(log_handle);
    KernelText text(WholeText());
    DiskTable table = {};
    const int32_t ret = ReadDiskTable(text, table, log_handle);
    keep_first(ret);
    for (const RegisteredPath& directory : directories) {
        if (ret == 0 || directory.device_number == 0) {
            keep_first(SetDiskTarget(directory, arrays_status, table.text, log_handle));
        }
    }
    return first_failure;
}

const CMonitorPhysicalUtil::DiskTarget* CMonitorPhysicalUtil::FindKnownTarget(
    const char* file_path) {
    auto known = m_disk_real_path.find(file_path);
    if (known == m_disk_real_path.end()) {
        // Spelled in another way than it was registered: that costs a look at the directory, once.
        char real_file_path[PATH_MAX];
        if (realpath(file_path, real_file_path) == nullptr ||
            m_disk_target.find(real_file_path) == m_disk_target.end()) {
            return nullptr;
        }
        known = m_disk_real_path.emplace(file_path, real_file_path).first;
    }
    const auto target = m_disk_target.find(known->second);
    return target == m_disk_target.end() ? nullptr : &target->second;
}

int32_t CMonitorPhysicalUtil::FindDiskTarget(const DiskTarget*& target, const char* file_path,
                                             LogCategory* log_handle) {
    target = FindKnownTarget(file_path);
    if (target == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "Can not find disk_name, file_path: %s.",
                    file_path);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (target->disk_name.empty()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "file_path: %s has no block device, file system: %s.", file_path,
                    target->file_system.c_str());
        return COMMON_ERR_NO_BLOCK_DEVICE;
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::GetDiskNameOfTarget(char* disk_name, uint32_t disk_name_length,
                                                  const char* file_path, LogCategory* log_handle) {
    if (FindKnownTarget(file_path) == nullptr) {
        const int32_t ret = SetDisksByNumber(&file_path, 1, log_handle);
        if (ret != 0) {
            return ret;
        }
    }
    const DiskTarget* target = nullptr;
    const int32_t ret = FindDiskTarget(target, file_path, log_handle);
    if (ret == 0) {
        CopyText(disk_name, disk_name_length, target->disk_name.c_str());
    }
    return ret;
}

}  // namespace CorvaneCommon
