// Disks behind directories: mount table (/etc/mtab), arrays (/proc/mdstat), space.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
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
constexpr const char* MTAB_PATH = "/etc/mtab";

// Words of an array's line: name, ":", "active", level, members. Lines with other states, as
// "inactive" or "active (read-only)", have another fourth word and are no arrays here.
constexpr size_t RAID_LEVEL_WORD = 3;
constexpr size_t FIRST_RAID_MEMBER_WORD = 4;

using StreamPointer = std::unique_ptr<FILE, void (*)(FILE*)>;

const char* DeviceToDiskName(const char* device) {
    const char* const slash = strrchr(device, '/');
    return slash == nullptr ? device : slash + 1;
}

/// The disk of the deepest directory above `path` that the map knows, or of the root; null when it
/// knows none.
const std::string* FindDiskOfParents(const std::map<std::string, std::string>& dir_to_disk_map,
                                     const char (&path)[MONITOR_NAME_LENGTH]) {
    char directory[MONITOR_NAME_LENGTH] = {};
    CopyName(directory, path);
    char* slash = strrchr(directory, '/');
    if (slash == directory) {
        slash = nullptr;  // a top-level path has no parent but the root
    }
    for (; slash != nullptr; slash = strrchr(directory, '/')) {
        *slash = '\0';
        const auto found = dir_to_disk_map.find(directory);
        if (found != dir_to_disk_map.end()) {
            return &found->second;
        }
    }
    const auto root = dir_to_disk_map.find("/");
    return root == dir_to_disk_map.end() ? nullptr : &root->second;
}

}  // namespace

bool ParseMountLine(const char* line, char (&device)[MONITOR_NAME_LENGTH],
                    char (&mount_point)[MONITOR_NAME_LENGTH]) {
    if (!ScanName(line, device)) {
        return false;
    }
    SkipRestOfWord(line);  // of a device that was cut: never taken for the mount point
    return ScanName(line, mount_point);
}

std::vector<std::string> SplitRaidLine(char* line) {
    std::vector<std::string> words;
    char* const start = line + strspn(line, " ");
    if (strncmp(start, "md", 2) != 0) {
        return words;
    }
    char* rest = nullptr;
    for (char* word = strtok_r(start, " ", &rest); word != nullptr;
         word = strtok_r(nullptr, " ", &rest)) {
        words.emplace_back(word);
    }
    return words;
}

int32_t CMonitorPhysicalUtil::SetDefaultDirMapToDisk(LogCategory* log_handle) {
    const StreamPointer stream(fopen(MTAB_PATH, "r"), &CloseFd);
    if (stream == nullptr) {
        const int error = errno;
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "fopen %s failed, error_msg: %s.", MTAB_PATH,
                    strerror(error));
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    char line[FILE_BUFFER_LENGTH] = {};
    char device[MONITOR_NAME_LENGTH] = {};
    char mount_point[MONITOR_NAME_LENGTH] = {};
    while (fgets(line, sizeof(line), stream.get()) != nullptr) {
        if (!ParseMountLine(line, device, mount_point)) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, file: %s.", MTAB_PATH);
            return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
        }
        m_dir_to_disk_map.insert_or_assign(mount_point, DeviceToDiskName(device));
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::GetDiskNameByFileName(char* disk_name, uint32_t disk_name_length,
                                                    const char* file_path,
                                                    LogCategory* log_handle) {
    if (IsEmpty(file_path) || disk_name == nullptr || disk_name_length == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "disk_name is NULL or file_path is NULL or file_path's length is 0 or "
                    "0>=disk_name_length, disk_name: %p, file path: %p, disk_name_length: %u.",
                    static_cast<const void*>(disk_name), static_cast<const void*>(file_path),
                    disk_name_length);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    disk_name[0] = '\0';
    return (this->*m_reading->get_disk_name)(disk_name, disk_name_length, file_path, log_handle);
}

int32_t CMonitorPhysicalUtil::GetDiskNameByMount(char* disk_name, uint32_t disk_name_length,
                                                 const char* file_path, LogCategory* log_handle) {
    char real_file_path[MONITOR_NAME_LENGTH] = {};
    const int32_t ret =
        GetRealFilePath(real_file_path, sizeof(real_file_path), file_path, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRealFilePath failed, ret: %d.", ret);
        return ret;
    }
    const auto found = m_dir_to_disk_map.find(real_file_path);
    if (found != m_dir_to_disk_map.end()) {
        CopyText(disk_name, disk_name_length, found->second.c_str());
        return 0;
    }
    const std::string* const disk = FindDiskOfParents(m_dir_to_disk_map, real_file_path);
    if (disk == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "file_path: %s can not find disk.", file_path);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    CopyText(disk_name, disk_name_length, disk->c_str());
    // The measuring operations find a path by this entry alone.
    m_dir_to_disk_map.insert_or_assign(real_file_path, disk_name);
    return 0;
}

int32_t CMonitorPhysicalUtil::SetDiskInfo(const char** file_path, uint32_t file_path_num,
                                          LogCategory* log_handle) {
    if (file_path == nullptr || file_path_num == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "file_path is NULL or 0>= file_path_num, file_path: %p, file_path_num: %u.",
                    static_cast<const void*>(file_path), file_path_num);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    return (this->*m_reading->set_disks)(file_path, file_path_num, log_handle);
}

int32_t CMonitorPhysicalUtil::SetDisksByName(const char** file_path, uint32_t file_path_num,
                                             LogCategory* log_handle) {
    int32_t ret = SetDefaultDirMapToDisk(log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "SetDefaultDirMapToDisk failed, ret: %d.", ret);
        return ret;
    }
    SetDefaultRaidMap(log_handle);  // a kernel without the md driver has no such file
    char proc_diskstats[FILE_BUFFER_LENGTH] = {};
    ret = GetRawDiskIOInfo(proc_diskstats, sizeof(proc_diskstats), log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawDiskIOInfo failed, ret: %d.", ret);
        return ret;
    }
    char disk_name[MONITOR_NAME_LENGTH] = {};
    for (uint32_t i = 0; i < file_path_num; ++i) {
        if (IsEmpty(file_path[i])) {
            continue;
        }
        ret = GetDiskNameByFileName(disk_name, sizeof(disk_name), file_path[i], log_handle);
        if (ret != 0) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "GetDiskNameByFileName failed, file_path: %s, ret: %d.", file_path[i], ret);
            return ret;
        }
        SetRaidIOStatInfo(proc_diskstats, disk_name, log_handle);
        ret = SetDiskIOStatInfo(proc_diskstats, disk_name, log_handle);
        if (ret != 0) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "SetDiskIODefaultStat failed, file_path: %s, ret: %d.", file_path[i], ret);
            return ret;
        }
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::GetDiskNameInfo(DiskNameInfoResult*& disk_name_info_result,
                                              LogCategory* log_handle) {
    if (disk_name_info_result == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "disk_name_info_result is NULL.");
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    *disk_name_info_result = DiskNameInfoResult();
    disk_name_info_result->disk_number = static_cast<uint32_t>(m_total_disk_num);
    for (int32_t row = 0; row < m_total_disk_num; ++row) {
        CopyName(disk_name_info_result->disk_name[row], m_disk_name[row]);
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::SetDefaultRaidMap(LogCategory* log_handle) {
    const StreamPointer stream(fopen(MDSTAT_PATH, "r"), &CloseFd);
    if (stream == nullptr) {
        const int error = errno;
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "fopen %s failed, error_msg: %s.", MDSTAT_PATH,
                    strerror(error));
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "fopen %s success.", MDSTAT_PATH);
    char line[FILE_BUFFER_LENGTH] = {};
    while (fgets(line, sizeof(line), stream.get()) != nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "get %s from file %s.", line, MDSTAT_PATH);
        std::vector<std::string> words = SplitRaidLine(line);
        SetDiskListOfRaid(words, log_handle);
    }
    return 0;
}

void CMonitorPhysicalUtil::SetDiskListOfRaid(std::vector<std::string>& arry,
                                             LogCategory* log_handle) {
    if (arry.size() <= FIRST_RAID_MEMBER_WORD ||
        arry[RAID_LEVEL_WORD].compare(0, strlen("raid"), "raid") != 0) {
        return;
    }
    const std::string& raid = arry[0];
    std::vector<std::string> disks;
    for (size_t i = FIRST_RAID_MEMBER_WORD; i < arry.size(); ++i) {
        // sdb1[1], sdc1[2](F): failed and spare members count, too.
        const size_t bracket = arry[i].find('[');
        if (bracket == std::string::npos) {
            continue;
        }
        const std::string disk = arry[i].substr(0, bracket);
        MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "raid %s add disk %s", raid.c_str(),
                    disk.c_str());
        disks.push_back(disk);
    }
    if (!disks.empty()) {
        m_raid_to_disk_map.insert_or_assign(raid, std::move(disks));
    }
}

void CMonitorPhysicalUtil::SetRaidIOStatInfo(const char* proc_diskstats, const char* disk_name,
                                             LogCategory* log_handle) {
    const auto raid = m_raid_to_disk_map.find(disk_name);
    if (raid == m_raid_to_disk_map.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "disk: %s not raid disk.", disk_name);
        return;
    }
    if (raid->second.empty()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "disk: %s raid disk empty.", disk_name);
        return;
    }
    MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "disk: %s is raid disk.", disk_name);
    for (const std::string& disk : raid->second) {
        const int32_t ret = SetDiskIOStatInfo(proc_diskstats, disk.c_str(), log_handle);
        if (ret != 0) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "SetDiskIODefaultStat failed, file_path: %s, ret: %d.", disk.c_str(), ret);
        }
    }
}

int32_t CMonitorPhysicalUtil::SetDiskIOStatInfo(const char* proc_diskstats, const char* disk_name,
                                                LogCategory* log_handle) {
    if (IsEmpty(disk_name) || IsEmpty(proc_diskstats)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "disk_name is NULL or disk_name's length is 0 or proc_diskstats is NULL or "
                    "proc_diskstats's length is 0, disk_name: %p, proc_diskstats: %p.",
                    static_cast<const void*>(disk_name), static_cast<const void*>(proc_diskstats));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (m_old_disk_io_info.find(disk_name) != m_old_disk_io_info.end()) {
        return 0;
    }
    char work_buffer[FILE_BUFFER_LENGTH] = {};
    memcpy(work_buffer, proc_diskstats, strnlen(proc_diskstats, sizeof(work_buffer) - 1));
    const char* const line = FindDiskLine(work_buffer, disk_name);
    if (line == nullptr) {
        return 0;  // no device of that name: tmpfs, overlay and the like
    }
    DiskIOInfo disk_io_info;
    if (!ParseDiskLine(line, disk_io_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, buf: %s.", line);
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    m_old_disk_io_info[disk_name] = disk_io_info;
    ListDisk(disk_name, log_handle);
    return 0;
}

void CMonitorPhysicalUtil::ListDisk(const char* disk_name, LogCategory* log_handle) {
    if (m_total_disk_num >= static_cast<int32_t>(MONITOR_MAX_DISK_NUM)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "m_disk_name is full, disk_name: %s.",
                    disk_name);
        return;  // measured all the same, but not listed
    }
    CopyName(m_disk_name[m_total_disk_num], disk_name);
    ++m_total_disk_num;
}

int32_t CMonitorPhysicalUtil::GetDiskMonitorInfo(DiskInfoResult* disk_info_result,
                                                 const char* file_path, LogCategory* log_handle) {
    if (disk_info_result == nullptr || IsEmpty(file_path)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "disk_info_result is NULL or file_path is NULL or file_path's length is 0, "
                    "disk_info_result: %p, file path: %p.",
                    static_cast<const void*>(disk_info_result),
                    static_cast<const void*>(file_path));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    CopyName(disk_info_result->file_path, file_path);
    disk_info_result->total_mb = 0;
    disk_info_result->use_mb = 0;
    if (!IsFileExist(file_path)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "file_path is not exist, file_path: %s.",
                    file_path);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    uint64_t free_mb = 0;
    const int32_t ret = GetDiskSize(disk_info_result->total_mb, free_mb, file_path, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "GetDiskSize is failed, ret: %d, file_path: %s.", ret, file_path);
        return ret;
    }
    disk_info_result->use_mb = disk_info_result->total_mb - free_mb;
    return 0;
}

}  // namespace CorvaneCommon
