// Load of disks (/proc/diskstats).
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "monitor_physical_util.h"
#include "monitor_physical_util_internal.h"
#include "monitor_physical_util_log.h"
#include "monitor_physical_util_reading.h"
#include "monitor_physical_util_text.h"

namespace CorvaneCommon {

namespace {

constexpr const char* DISKSTATS_PATH = "/proc/diskstats";
constexpr uint64_t MILLISECONDS_PER_SECOND = 1000;
constexpr uint64_t MAX_DISK_IO_RATE = 100;

bool ScanDiskCounters(const char*& text, DiskIOInfo& disk_io_info) {
    return ScanNumber(text, disk_io_info.reads_completed) &&
           ScanNumber(text, disk_io_info.reads_merged) &&
           ScanNumber(text, disk_io_info.sectors_read) &&
           ScanNumber(text, disk_io_info.time_spent_reading) &&
           ScanNumber(text, disk_io_info.writes_completed) &&
           ScanNumber(text, disk_io_info.writes_merged) &&
           ScanNumber(text, disk_io_info.sectors_written) &&
           ScanNumber(text, disk_io_info.time_spent_writing) &&
           ScanNumber(text, disk_io_info.ios_currently_in_progress) &&
           ScanNumber(text, disk_io_info.time_spent_doing_ios) &&
           ScanNumber(text, disk_io_info.weighted_time_spent_doing_ios);
}

/// Completed operations per second. Modulo 2^32, so that counters of both widths count on.
uint32_t IOPerSecond(const DiskIOInfo& old_info, const DiskIOInfo& now_info, uint64_t seconds) {
    const auto reads = static_cast<uint32_t>(now_info.reads_completed - old_info.reads_completed);
    const auto writes =
        static_cast<uint32_t>(now_info.writes_completed - old_info.writes_completed);
    const uint32_t operations = reads + writes;
    return static_cast<uint32_t>(operations / seconds);
}

/// Busy percent of the interval, at most 100. A counter that fell wraps and reads 100 once.
uint32_t BusyPercent(const DiskIOInfo& old_info, const DiskIOInfo& now_info, uint64_t seconds) {
    const uint64_t interval = seconds * MILLISECONDS_PER_SECOND;
    if (interval == 0) {
        return 0;  // an interval so long that it wrapped
    }
    const uint64_t busy = now_info.time_spent_doing_ios - old_info.time_spent_doing_ios;
    const auto rate = static_cast<uint32_t>(busy * PERCENT / interval);
    return std::min<uint32_t>(rate, MAX_DISK_IO_RATE);
}

/// Replaces `result` with the one that is known for its disk, if any.
bool FindMeasured(const std::map<std::string, DiskIOInfoResult>& measured_disks,
                  DiskIOInfoResult& result) {
    const auto found = measured_disks.find(result.disk_name);
    if (found == measured_disks.end()) {
        return false;
    }
    result = found->second;
    return true;
}

}  // namespace

char* FindDiskLine(char* proc_diskstats, const char* disk_name) {
    // The shortest prefix whose first occurrence stands before a blank wins. The kernel lists a
    // disk before its partitions, so partitions are measured by their disk: sda1 by sda's line.
    char needle[MONITOR_NAME_LENGTH] = {};
    char* line = proc_diskstats;
    const size_t length = strnlen(disk_name, MONITOR_NAME_LENGTH - 1);
    for (size_t prefix = 1; prefix <= length; ++prefix) {
        needle[prefix - 1] = disk_name[prefix - 1];
        line = strstr(line, needle);  // a longer prefix cannot stand before a shorter one
        if (line == nullptr) {
            return nullptr;
        }
        if (line[prefix] == ' ' && CutLine(line) != nullptr) {
            return line;
        }
    }
    return nullptr;
}

bool ParseDiskLine(const char* line, DiskIOInfo& disk_io_info) {
    return ScanName(line, disk_io_info.device_name) && ScanDiskCounters(line, disk_io_info);
}

bool ParseDiskCounters(const char* line, DiskIOInfo& disk_io_info) {
    return SkipWord(line) && ScanDiskCounters(line, disk_io_info);
}

int32_t CMonitorPhysicalUtil::GetRawDiskIOInfo(char* raw_disk_io_info,
                                               uint32_t raw_disk_io_info_length,
                                               LogCategory* log_handle) {
    if (raw_disk_io_info == nullptr || raw_disk_io_info_length == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "raw_disk_io_info is NULL or raw_disk_io_info_length is 0, "
                    "raw_disk_io_info: %p, raw_disk_io_info_length: %u.",
                    static_cast<const void*>(raw_disk_io_info), raw_disk_io_info_length);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    const int32_t ret = ReadFromFile(raw_disk_io_info, raw_disk_io_info_length, DISKSTATS_PATH,
                                     log_handle, Buffer::Unset);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "ReadFromFile failed, file: %s.",
                    DISKSTATS_PATH);
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::GetDiskIOInfoImpl(DiskIOInfo* disk_io_info, const char* disk_name,
                                                LogCategory* log_handle) {
    if (IsEmpty(disk_name) || disk_io_info == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "disk_name is NULL or disk_name's length is 0 or disk_io_info is NULL, "
                    "disk_io_info: %p, disk_name: %p.",
                    static_cast<const void*>(disk_io_info), static_cast<const void*>(disk_name));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    disk_io_info->max_disk_io_rate = 0;
    disk_io_info->max_disk_iops = 0;
    char buffer[FILE_BUFFER_LENGTH];
    const int32_t ret = GetRawDiskIOInfo(buffer, sizeof(buffer), log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawDiskIOInfo failed, ret: %d.", ret);
        return ret;
    }
    const char* const line = FindDiskLine(buffer, disk_name);
    if (line == nullptr) {
        return COMMON_ERR_INVALID_ARGUMENTS;  // the caller's record names the directory
    }
    if (!ParseDiskCounters(line, *disk_io_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, buf: %s.", line);
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    // The name asked for, not the one on the line: it is the key of the stored sample.
    CopyName(disk_io_info->device_name, disk_name);
    return 0;
}

int32_t CMonitorPhysicalUtil::GetDiskIOInfo(DiskIOInfo* disk_io_info, const char* file_path,
                                            LogCategory* log_handle) {
    if (disk_io_info == nullptr || IsEmpty(file_path)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "disk_io_info is NULL or file_path is NULL or file_path's length is 0, "
                    "disk_io_info: %p, file path: %p.",
                    static_cast<const void*>(disk_io_info), static_cast<const void*>(file_path));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    const auto disk = m_dir_to_disk_map.find(file_path);
    if (disk == m_dir_to_disk_map.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "Can not find disk_name, file_path: %s.",
                    file_path);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    const int32_t ret = GetDiskIOInfoImpl(disk_io_info, disk->second.c_str(), log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetDiskIOInfo failed, ret: %d, file_path: %s.",
                    ret, file_path);
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::CalcDiskIOInfo(uint32_t& disk_io_rate, uint32_t& disk_iops,
                                             DiskIOInfo* now_disk_io_info, uint64_t time_interval,
                                             bool refresh, LogCategory* log_handle) {
    disk_io_rate = 0;
    disk_iops = 0;
    if (now_disk_io_info == nullptr || time_interval == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "now_disk_io_info is NULL or 0>= time_interval, now_disk_io_info: %p, "
                    "time_interval: %lu.",
                    static_cast<const void*>(now_disk_io_info), time_interval);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    DiskIOInfo& now = *now_disk_io_info;
    const auto found = m_old_disk_io_info.find(now.device_name);
    if (found == m_old_disk_io_info.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "can not get old disk info, disk device name: %s.", now.device_name);
        return COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE;
    }
    DiskIOInfo& old = found->second;
    MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG,
                "device_name: %s, new_reads_completed: %lu, new_writes_completed: %lu, "
                "old_reads_completed: %lu, old_writes_completed: %lu, "
                "new_time_spent_doing_ios: %lu, old_time_spent_doing_ios: %lu, "
                "time_interval:  %lu",
                now.device_name, now.reads_completed, now.writes_completed, old.reads_completed,
                old.writes_completed, now.time_spent_doing_ios, old.time_spent_doing_ios,
                time_interval);
    disk_iops = IOPerSecond(old, now, time_interval);
    disk_io_rate = BusyPercent(old, now, time_interval);
    if (!refresh) {
        return 0;
    }
    now.max_disk_io_rate = std::max(old.max_disk_io_rate, disk_io_rate);
    now.max_disk_iops = std::max(old.max_disk_iops, disk_iops);
    old = now;
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcRaidDiskIOInfo(const char* file_path, const char* real_file_path,
                                                 uint64_t time_interval, bool refresh,
                                                 LogCategory* log_handle) {
    const auto disk = m_dir_to_disk_map.find(real_file_path);
    if (disk == m_dir_to_disk_map.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "Can not find disk_name, file_path: %s.",
                    real_file_path);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    const auto raid = m_raid_to_disk_map.find(disk->second);
    if (raid == m_raid_to_disk_map.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "file_path: %s not raid disk.", real_file_path);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (raid->second.empty()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "file_path: %s raid disk empty.",
                    real_file_path);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "file_path: %s is raid disk.", real_file_path);
    DiskIOInfo now_disk_io_info;
    DiskIOInfoResult busiest;  // without a name; the two figures may come from different members
    for (const std::string& member : raid->second) {
        const int32_t ret = GetDiskIOInfoImpl(&now_disk_io_info, member.c_str(), log_handle);
        if (ret != 0) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetDiskIOInfo failed, ret: %d, disk: %s.",
                        ret, member.c_str());
            continue;
        }
        uint32_t disk_io_rate = 0;
        uint32_t disk_iops = 0;
        if (CalcDiskIOInfo(disk_io_rate, disk_iops, &now_disk_io_info, time_interval, refresh,
                           log_handle) != 0) {
            continue;
        }
        MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "disk: %s iorate %u iops %u.", member.c_str(),
                    disk_io_rate, disk_iops);
        busiest.disk_io_rate = std::max(busiest.disk_io_rate, disk_io_rate);
        busiest.disk_iops = std::max(busiest.disk_iops, disk_iops);
    }
    m_disk_io_result_info[file_path] = busiest;
    MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG, "set path: %s iorate %u iops %u.", file_path,
                busiest.disk_io_rate, busiest.disk_iops);
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcDiskIOOfRealPath(const char* file_path,
                                                   const char* real_file_path,
                                                   uint64_t time_interval, bool refresh,
                                                   DiskIOResultMap* measured_disks,
                                                   LogCategory* log_handle) {
    if (CalcRaidDiskIOInfo(file_path, real_file_path, time_interval, refresh, log_handle) == 0) {
        return 0;
    }
    DiskIOInfo now_disk_io_info;
    int32_t ret = GetDiskIOInfo(&now_disk_io_info, real_file_path, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetDiskIOInfo failed, ret: %d, file_path: %s.",
                    ret, real_file_path);
        return ret;
    }
    DiskIOInfoResult result;
    CopyName(result.disk_name, now_disk_io_info.device_name);
    // A disk's difference is taken once a call, whatever the number of directories on it.
    if (measured_disks == nullptr || !FindMeasured(*measured_disks, result)) {
        ret = CalcDiskIOInfo(result.disk_io_rate, result.disk_iops, &now_disk_io_info,
                             time_interval, refresh, log_handle);
        if (ret != 0) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "CalcDiskIOInfo failed, ret: %d, file_path: %s.", ret, real_file_path);
            return ret;
        }
    }
    m_disk_io_result_info[file_path] = result;
    if (measured_disks != nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_DEBUG,
                    "file_path: %s, disk_io_rate: %d, disk_iops: %d", file_path,
                    result.disk_io_rate, result.disk_iops);
        measured_disks->emplace(result.disk_name, result);
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcDiskIOMonitorInfo(const char* file_path, uint64_t time_interval,
                                                    bool refresh, LogCategory* log_handle) {
    if (time_interval == 0 || IsEmpty(file_path)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "0>=time_interval or file_path is NULL or file_path's length is 0, "
                    "file_path: %p, time_interval: %lu.",
                    static_cast<const void*>(file_path), time_interval);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    return (this->*m_reading->calc_disk)(file_path, time_interval, refresh, log_handle);
}

int32_t CMonitorPhysicalUtil::CalcDiskByName(const char* file_path, uint64_t time_interval,
                                             bool refresh, LogCategory* log_handle) {
    char real_file_path[MONITOR_NAME_LENGTH] = {};
    const int32_t ret =
        GetRealFilePath(real_file_path, sizeof(real_file_path), file_path, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "GetRealFilePath failed, file_path: %s, ret: %d.", file_path, ret);
        return ret;
    }
    return CalcDiskIOOfRealPath(file_path, real_file_path, time_interval, refresh, nullptr,
                                log_handle);
}

int32_t CMonitorPhysicalUtil::CalcDiskIOMonitorInfo(const std::vector<const char*>& vec_file_path,
                                                    uint64_t time_interval, bool refresh,
                                                    LogCategory* log_handle) {
    if (time_interval == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "time_interval: %lu.", time_interval);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    return (this->*m_reading->calc_disks)(vec_file_path, time_interval, refresh, log_handle);
}

int32_t CMonitorPhysicalUtil::CalcDisksByName(const std::vector<const char*>& file_paths,
                                              uint64_t time_interval, bool refresh,
                                              LogCategory* log_handle) {
    DiskIOResultMap measured_disks;
    for (const char* const file_path : file_paths) {
        if (IsEmpty(file_path)) {
            continue;
        }
        char real_file_path[MONITOR_NAME_LENGTH] = {};
        const int32_t ret =
            GetRealFilePath(real_file_path, sizeof(real_file_path), file_path, log_handle);
        if (ret != 0) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "GetRealFilePath failed, file_path: %s, ret: %d.", file_path, ret);
            return ret;
        }
        // A directory that cannot be measured has logged why, and does not stop the others.
        CalcDiskIOOfRealPath(file_path, real_file_path, time_interval, refresh, &measured_disks,
                             log_handle);
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::GetDiskIOMonitorInfo(DiskIOInfoResult* disk_io_info_result,
                                                   const char* file_path, LogCategory* log_handle) {
    if (disk_io_info_result == nullptr || IsEmpty(file_path)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "disk_io_info_result is NULL or file_path is NULL or file_path's length is 0, "
                    "disk_io_info_result: %p, file_path: %p.",
                    static_cast<const void*>(disk_io_info_result),
                    static_cast<const void*>(file_path));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    const auto found = m_disk_io_result_info.find(file_path);
    if (found == m_disk_io_result_info.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "%s Can not find Disk IO Result Info.",
                    file_path);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    *disk_io_info_result = found->second;
    return 0;
}

int32_t CMonitorPhysicalUtil::ClearDiskIOPhasedcacheValue(LogCategory* /*log_handle*/) {
    for (auto& [disk_name, disk_io_info] : m_old_disk_io_info) {
        disk_io_info.max_disk_io_rate = 0;
        disk_io_info.max_disk_iops = 0;
    }
    return 0;
}

}  // namespace CorvaneCommon
