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

/// The line of a device between two places in the text; null when it is not there.
char* FindDeviceBetween(char* first, const char* last, const char* name) {
    const size_t length = strlen(name);
    for (char* line = first; line != nullptr && line < last; line = NextLine(line)) {
        const char* position = line;
        SkipWord(position);  // both numbers of the device
        SkipWord(position);
        position = SkipSpace(position);
        if (strncmp(position, name, length) == 0 && position[length] == ' ') {
            return line + (position - line);
        }
    }
    return nullptr;
}

/// Lines move little from call to call: looks first from where this one stood on.
char* FindDeviceFrom(char* text, size_t text_length, size_t position, const char* name) {
    char* place = text + std::min(position, text_length);
    while (place != text && place[-1] != '\n') {
        --place;
    }
    char* const line = FindDeviceBetween(place, text + text_length, name);
    return line == nullptr ? FindDeviceBetween(text, place, name) : line;
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
    return FindDeviceBetween(proc_diskstats, proc_diskstats + strlen(proc_diskstats), name);
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

int32_t CMonitorPhysicalUtil::MeasureDiskLine(DiskLineFigures& figures, const DiskTable& table,
                                              const std::string& line_name, uint64_t time_interval,
                                              bool refresh, LogCategory* log_handle) {
    char* const line =
        FindDeviceFrom(table.text, table.length, figures.position, line_name.c_str());
    if (line == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "Can not find disk %s in /proc/diskstats.",
                    line_name.c_str());
        m_old_disk_io_info.erase(line_name);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    figures.position = static_cast<size_t>(line - table.text);
    DiskIOInfo now_disk_io_info;
    if (!ParseDeviceLine(line, now_disk_io_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "sscanf failed, file: /proc/diskstats, disk: %s.", line_name.c_str());
        m_old_disk_io_info.erase(line_name);
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    const auto old_disk_io_info = m_old_disk_io_info.find(line_name);
    if (old_disk_io_info == m_old_disk_io_info.end() ||
        AnyFell(old_disk_io_info->second, now_disk_io_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "disk %s is back or its counters fell, it is measured anew.",
                    line_name.c_str());
        // With the others' baselines, so that one interval fits all.
        if (refresh) {
            m_old_disk_io_info.insert_or_assign(line_name, now_disk_io_info);
        } else {
            m_old_disk_io_info.erase(line_name);
        }
        return COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE;
    }
    return CalcDiskIOInfo(figures.disk_io_rate, figures.disk_iops, &now_disk_io_info, time_interval,
                          refresh, log_handle);
}

const CMonitorPhysicalUtil::DiskLineFigures& CMonitorPhysicalUtil::CalcDiskLine(
    const DiskTable& table, const std::string& line_name, uint64_t time_interval, bool refresh,
    LogCategory* log_handle) {
    DiskLineFigures& figures = m_disk_line_figures[line_name];
    if (figures.pass != m_disk_pass) {  // else of another directory on the same disk
        figures.pass = m_disk_pass;
        figures.status =
            MeasureDiskLine(figures, table, line_name, time_interval, refresh, log_handle);
    }
    return figures;
}

int32_t CMonitorPhysicalUtil::CalcDiskTarget(const DiskTable& table, const char* file_path,
                                             uint64_t time_interval, bool refresh,
                                             LogCategory* log_handle) {
    const DiskTarget* target = nullptr;
    int32_t ret = FindDiskTarget(target, file_path, log_handle);
    if (ret != 0) {
        m_disk_io_result_info.erase(file_path);
        return ret;
    }
    DiskIOInfoResult busiest;  // the two figures may come from different members
    CopyName(busiest.disk_name, target->measured_name.c_str());
    bool measured = false;
    for (const std::string& line_name : target->lines) {
        const DiskLineFigures& line =
            CalcDiskLine(table, line_name, time_interval, refresh, log_handle);
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
    const auto result = m_disk_io_result_info.find(file_path);
    if (result == m_disk_io_result_info.end()) {
        m_disk_io_result_info.emplace(file_path, busiest);
    } else {
        result->second = busiest;
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::ReadDiskTable(KernelText& text, DiskTable& table,
                                            LogCategory* log_handle) {
    const int32_t ret = text.Fill([&](char* proc_diskstats, uint32_t length) {
        return GetRawDiskIOInfo(proc_diskstats, length, log_handle);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawDiskIOInfo failed, ret: %d.", ret);
        return ret;
    }
    table = {text.Data(), strlen(text.Data())};
    ++m_disk_pass;
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcDisksByNumber(const std::vector<const char*>& file_paths,
                                                uint64_t time_interval, bool refresh,
                                                LogCategory* log_handle) {
    KernelText text(WholeText());
    DiskTable table = {};
    const int32_t ret = ReadDiskTable(text, table, log_handle);
    for (const char* const file_path : file_paths) {
        if (IsEmpty(file_path)) {
            continue;
        }
        if (ret != 0) {
            m_disk_io_result_info.erase(file_path);
        } else {
            CalcDiskTarget(table, file_path, time_interval, refresh, log_handle);
        }
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::CalcDiskByNumber(const char* file_path, uint64_t time_interval,
                                               bool refresh, LogCategory* log_handle) {
    KernelText text(WholeText());
    DiskTable table = {};
    const int32_t ret = ReadDiskTable(text, table, log_handle);
    if (ret != 0) {
        m_disk_io_result_info.erase(file_path);
        return ret;
    }
    return CalcDiskTarget(table, file_path, time_interval, refresh, log_handle);
}

}  // namespace CorvaneCommon
