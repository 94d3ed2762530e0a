// The names in the kernel's files, for what the program tells its user beyond the monitor's
// figures: cores to ask for, interfaces that no figure covers, disks measured by another's line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane {

/// The whole of a file, or an empty text.
std::string ReadWholeFile(const std::string& path);

/// cpu0, cpu1, ... in the text of /proc/stat, in its order.
std::vector<std::string> CoreNames(const std::string& stat_text);

/// Every interface in the text of /proc/net/dev.
std::vector<std::string> InterfaceNames(const std::string& net_dev_text);

/// Whether the monitor measures an interface of this name.
bool IsMeasuredInterface(const std::string& name);

/// The name on the line of /proc/diskstats by which the monitor measures a disk; empty: none.
std::string MeasuredDiskName(const std::string& diskstats_text, const std::string& disk);

/// Whether `disk` is `whole` or a partition of it: sda1 of sda, nvme0n1p2 of nvme0n1.
bool IsDiskOrPartition(const std::string& disk, const std::string& whole);

/// The command name of a process, empty when it has gone. Any bytes but NUL.
std::string CommandName(uint32_t pid);

/// Threads of a process whose names hold a blank, which the monitor cannot measure.
std::vector<std::string> UnmeasuredThreadNames(uint32_t pid);

}  // namespace corvane
