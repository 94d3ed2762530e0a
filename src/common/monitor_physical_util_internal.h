// What the subsystems share with each other and with the tests. Internal: not installed.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "monitor_physical_util.h"

namespace CorvaneCommon {

// ---- Parsers of kernel text: text in, record out, no state, no file ----
//
// Each is defined in the source of its subsystem and returns whether the text held every field;
// fields that were read before a fault stay in the record.

/// A line of /proc/stat: name and seven numbers. Sets nothing else.
bool ParseCPULine(const char* line, CPUInfo& cpu_info);

/// /proc/PID/stat: fields 14 to 17.
bool ParseProcessTimes(const char* line, ProcessCPUInfo& process_cpu_info);

/// /proc/PID/task/TID/stat: fields 14 and 15.
bool ParseThreadTimes(const char* line, uint64_t& user, uint64_t& system);

/// "Key: number unit", as in /proc/meminfo and /proc/PID/status.
bool ParseKeyValue(const char* line, uint64_t& value);

/// A line of /proc/net/dev: the name before the first colon, without leading blanks. Returns the
/// text behind the colon, or null when there is none.
const char* ParseNetworkName(const char* line, char (&nic_name)[MONITOR_NAME_LENGTH]);

/// The text behind an interface's colon in /proc/net/dev: numbers 1, 2, 9 and 10.
bool ParseNetworkCounters(const char* text, NetworkInfo& network_info);

/// A line of the mount table: device and mount point, each cut to 127 characters.
bool ParseMountLine(const char* line, char (&device)[MONITOR_NAME_LENGTH],
                    char (&mount_point)[MONITOR_NAME_LENGTH]);

/// A line of /proc/mdstat in words, cut at the space character only; none for a line that does
/// not begin with "md". Overwrites the line.
std::vector<std::string> SplitRaidLine(char* line);

/// Finds a disk's line in the text of /proc/diskstats by the growing prefix of its name and cuts
/// it out. Returns null when there is none; the text is then unchanged.
char* FindDiskLine(char* proc_diskstats, const char* disk_name);

/// A line of /proc/diskstats from the name on: name and eleven numbers.
bool ParseDiskLine(const char* line, DiskIOInfo& disk_io_info);

/// The same, without storing the name.
bool ParseDiskCounters(const char* line, DiskIOInfo& disk_io_info);

// ---- Shared steps ----

constexpr uint64_t PERCENT = 100;

/// All seven columns, modulo 2^64.
uint64_t TotalTicks(const CPUInfo& cpu_info);

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
