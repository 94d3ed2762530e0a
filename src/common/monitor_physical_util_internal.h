// What the subsystems share with each other and with the tests. Internal: not installed.
#pragma once

#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "monitor_physical_util.h"

namespace CorvaneCommon {

// ---- Parsers of kernel text: text in, record out, no state, no file ----
//
// Each is defined in the source of its subsystem and returns whether the text held every field;
// fields that were read before a fault stay in the record.

/// A line of /proc/stat: name and seven numbers. Sets nothing else.
bool ParseCPULine(const char* line, CPUInfo& cpu_info);

/// The same, strictly: a kernel 2.4 has the first four numbers only, newer ones a number of steal.
bool ParseCoreLine(const char* line, CPUInfo& cpu_info);

/// /proc/PID/stat: fields 14 to 17.
bool ParseProcessTimes(const char* line, ProcessCPUInfo& process_cpu_info);

/// /proc/PID/task/TID/stat: fields 14 and 15.
bool ParseThreadTimes(const char* line, ThreadCPUInfo& thread_cpu_info);

/// The same two files with fields counted from the last ")", as a name may hold anything, and with
/// field 22, the start time.
bool ParseProcessStat(const char* text, ProcessCPUInfo& process_cpu_info);
bool ParseThreadStat(const char* text, ThreadCPUInfo& thread_cpu_info);

/// How long it takes to read a process's file, and when it was read, is told by one of these.
int64_t WallClockMicroseconds();  ///< a step of the clock is part of it
int64_t MonotonicMicroseconds();

/// "Key: number unit", as in /proc/meminfo and /proc/PID/status.
bool ParseKeyValue(const char* line, uint64_t& value);

/// A line of /proc/net/dev: the name before the first colon, without leading blanks. Returns the
/// text behind the colon, or null when there is none.
const char* ParseNetworkName(const char* line, char (&nic_name)[MONITOR_NAME_LENGTH]);

/// The text behind an interface's colon in /proc/net/dev: numbers 1, 2, 9 and 10.
bool ParseNetworkCounters(const char* text, NetworkInfo& network_info);

/// Rates between an interface's stored sample and a fresh one.
struct RateRules {
    bool report_peaks;           // byte rates: the peaks since the clear, or the current ones
    bool a_fall_is_0;            // of a figure whose counter fell; else the interface is a new one
    const char* not_found_text;  // takes the interface's name
};
int32_t CalcRatesSince(std::map<std::string, NetworkInfo>& old_network_info,
                       std::map<std::string, NetworkInfo>::iterator old_sample,
                       const RateRules& rules, NetworkInfoResult& result, NetworkInfo& now,
                       uint64_t time_interval, bool refresh, LogCategory* log_handle);

/// A line of the mount table: device and mount point, each cut to 127 characters.
bool ParseMountLine(const char* line, char (&device)[MONITOR_NAME_LENGTH],
                    char (&mount_point)[MONITOR_NAME_LENGTH]);

/// A line of /proc/mdstat in words, cut at the space character only; none for a line that does
/// not begin with "md". Overwrites the line.
std::vector<std::string> SplitRaidLine(char* line);

/// Finds a disk's line in the text of /proc/diskstats by the growing prefix of its name and cuts
/// it out. Returns null when there is none; the text is then unchanged.
char* FindDiskLine(char* proc_diskstats, const char* disk_name);

/// A line of /proc/mdstat, strictly: the array's name and its members' names, whatever level and
/// state it is in. False for a line that is none of an array.
bool ParseArrayLine(const char* line, std::string& array, std::vector<std::string>& members);

/// A line of /proc/self/mountinfo. Escapes (\040) are decoded.
struct MountEntry {
    uint64_t id = 0;
    uint64_t parent_id = 0;  ///< the mount that its mount point lies in
    std::string mount_point;
    std::string file_system;  ///< type
    std::string source;       ///< device, or whatever the file system calls its own
};
bool ParseMountEntry(const char* line, MountEntry& entry);

/// The mount that holds a resolved path; null when none of these does, as in a chroot.
const MountEntry* FindMount(const std::vector<MountEntry>& mounts, const char* path);

/// The line of /proc/diskstats of a device number, or of a name; points to the name, or is null.
char* FindDeviceLine(char* proc_diskstats, uint32_t major_number, uint32_t minor_number);
char* FindDeviceLine(char* proc_diskstats, const char* name);

/// The line found, name and eleven numbers. Leaves the text as it was: other directories look for
/// their lines in it.
bool ParseDeviceLine(char* line, DiskIOInfo& disk_io_info);

/// A line of /proc/diskstats from the name on: name and eleven numbers.
bool ParseDiskLine(const char* line, DiskIOInfo& disk_io_info);

/// The same, without storing the name.
bool ParseDiskCounters(const char* line, DiskIOInfo& disk_io_info);

// ---- Shared steps ----

constexpr uint64_t PERCENT = 100;

/// All seven columns, modulo 2^64.
uint64_t TotalTicks(const CPUInfo& cpu_info);

/// Busy share of the ticks between two samples in whole percent, rounded up. Counters that fell
/// wrap: the figure is then whatever the formula gives.
uint32_t BusyPercent(const CPUInfo& old_cpu, const CPUInfo& now_cpu);

/// The same with steal in the total, a column that stepped back as no time in it, and at most 100.
uint32_t BoundedBusyPercent(const CPUInfo& old_cpu, const CPUInfo& now_cpu);

/// What a running total rose by; 0 when it stepped back.
inline uint64_t Rise(uint64_t old_value, uint64_t now_value) {
    return now_value < old_value ? 0 : now_value - old_value;
}

/// Writes a row of a list of names, at most the one behind the last; in the memory of the old name.
inline const std::string& SetName(std::vector<std::string>& names, size_t row, const char* name) {
    if (row == names.size()) {
        return names.emplace_back(name);
    }
    if (names[row] != name) {
        names[row] = name;
    }
    return names[row];
}

/// Drops the samples whose keys are not among the names, but for the one called `kept`.
template <typename Sample>
void DropOthers(std::map<std::string, Sample>& samples, const std::vector<std::string>& names,
                const std::string& kept) {
    std::set<std::string_view> known(names.begin(), names.end());
    known.insert(kept);
    for (auto sample = samples.begin(); sample != samples.end();) {
        sample = known.count(sample->first) == 0 ? samples.erase(sample) : std::next(sample);
    }
}

/// The quotient rounded up; the divisor is not 0. A quotient that the type cannot hold, as
/// counters that fell produce, gives the type's minimum.
template <typename T>
T CeilQuotient(uint64_t dividend, uint64_t divisor) {
    const double quotient = std::ceil(static_cast<double>(dividend) / static_cast<double>(divisor));
    if (quotient >= -static_cast<double>(std::numeric_limits<T>::min())) {
        return std::numeric_limits<T>::min();
    }
    return static_cast<T>(quotient);
}

}  // namespace CorvaneCommon
