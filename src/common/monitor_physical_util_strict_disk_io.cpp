// Load of disks with the strict reading: lines of /proc/diskstats by whole names.
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

bool AnyFell(const DiskIOInfo& old_info, const DiskIOInfo& now_info) {
    return now_info.reads_completed < old_info.reads_completed ||
           now_info.writes_completed < old_info.writes_completed ||
           now_info.time_spent_doing_ios < old_info.time_spent_doing_ios;
}

}  // namespace

char* FindDeviceLine(char* proc_diskstats, uint32_t major_number, uint32_t minor_number) {
    for (char* line = proc_diskstats; line != nullptr; line = NextLine(line)) {
        const char* position = line;
        uint64_t major_found = 0;
        uint64_t minor_found = 0;
        if (ScanNumber(position, major_found) && ScanNumber(position, minor_found) &&
            major_found == major_number && minor_found == minor_number) {
            return line + (SkipSpace(position) - line);
        }
    }
    return nullptr;
}

char* FindDeviceLine(char* proc_diskstats, const char* name) {
    const size_t length = strlen(name);
    for (char* line = proc_diskstats; line != nullptr; line = NextLine(line)) {
        const char* position = line;
        if (SkipWord(position) && SkipWord(position)) {
            position = SkipSpace(position);
            if (strncmp(position, name, length) == 0 && position[length] == ' ') {
                return line + (position - line);
            }
        }
    }
    return nullptr;
}

bool ParseDeviceLine(char* line, DiskIOInfo& disk_io_info) {
    char* const newline = strchr(line, '\n');
    if (newline != nullptr) {
        *newline = '\0';
    }
    const bool complete = ParseDiskLine(line, disk_io_info);
    if (newline != nullptr) {
        *newline = '\n';
    }
    return complete;
}

const CMonitorPhysicalUtil::DiskLineFigures& CMonitorPhysicalUtil::CalcDiskLine(
    char* proc_diskstats, const std::string& line_name, uint64_t time_interval, bool refresh,
    LogCategory* log_handle) {
    DiskLineFigures& figures = m_disk_line_figures[line_name];
    if (figures.pass == m_disk_pass) {
        return figures;  // of another directory on the same disk
    }
    figures = {m_disk_pass, 0, 0, 0};
    char* const line = FindDeviceLine(proc_diskstats, line_name.c_str());
    if (line == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "Can not find disk %s in /proc/diskstats.",
                    line_name.c_str());
        figures.status = COMMON_ERR_INVALID_ARGUMENTS;
        return figures;
    }
    DiskIOInfo now_disk_io_info;
    if (!ParseDeviceLine(line, now_disk_io_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "sscanf failed, file: /proc/diskstats, disk: %s.", line_name.c_str());
        figures.status = COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
        return figures;
    }
    const auto old_disk_io_info = m_old_disk_io_info.find(line_name);
    if (old_disk_io_info != m_old_disk_io_info.end() &&
        AnyFell(old_disk_io_info->second, now_disk_io_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "the counters of disk %s fell, it is measured anew.", line_name.c_str());
        old_disk_io_info->second = now_disk_io_info;
        figures.status = COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE;
        return figures;
    }
    figures.status = CalcDiskIOInfo(figures.disk_io_rate, figures.disk_iops, &now_disk_io_info,
                                    time_interval, refresh, log_handle);
    return figures;
}

int32_t CMonitorPhysicalUtil::CalcDiskTarget(char* proc_diskstats, const char* file_path,
                                             uint64_t time_interval, bool refresh,
                                             LogCategory* log_handle) {
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
    DiskIOInfoResult busiest;  // the two figures may come from different members
    const bool is_single = target->lines.size() == 1;
    CopyName(busiest.disk_name,
             is_single ? target->lines.front().c_str() : target->disk_name.c_str());
    int32_t ret = COMMON_ERR_INVALID_ARGUMENTS;
    bool measured = false;
    for (const std::string& line_name : target->lines) {
        const DiskLineFigures& line =
            CalcDiskLine(proc_diskstats, line_name, time_interval, refresh, log_handle);
        if (line.status != 0) {
            ret = line.status;
            continue;
        }
        measured = true;
        busiest.disk_io_rate = std::max(busiest.disk_io_rate, line.disk_io_rate);
        busiest.disk_iops = std::max(busiest.disk_iops, line.disk_iops);
    }
    if (!measured) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetDiskIOInfo failed, ret: %d, file_path: %s.",
                    ret, file_path);
        m_disk_io_result_info.erase(file_path);
        return ret;
    }
    m_disk_io_result_info[file_path] = busiest;
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcDisksByNumber(const std::vector<const char*>& file_paths,
                                                uint64_t time_interval, bool refresh,
                                                LogCategory* log_handle) {
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* proc_diskstats, uint32_t length) {
        return GetRawDiskIOInfo(proc_diskstats, length, log_handle);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawDiskIOInfo failed, ret: %d.", ret);
        m_disk_io_result_info.clear();
        return ret;
    }
    ++m_disk_pass;
    for (const char* const file_path : file_paths) {
        if (!IsEmpty(file_path)) {
            CalcDiskTarget(text.Data(), file_path, time_interval, refresh, log_handle);
        }
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcDiskByNumber(const char* file_path, uint64_t time_interval,
                                               bool refresh, LogCategory* log_handle) {
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* proc_diskstats, uint32_t length) {
        return GetRawDiskIOInfo(proc_diskstats, length, log_handle);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawDiskIOInfo failed, ret: %d.", ret);
        m_disk_io_result_info.erase(file_path);
        return ret;
    }
    ++m_disk_pass;
    return CalcDiskTarget(text.Data(), file_path, time_interval, refresh, log_handle);
}

}  // namespace CorvaneCommon
