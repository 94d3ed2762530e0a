// The names in the kernel's files, for what the reader is told beyond the monitor's figures:
// interfaces that no figure covers, threads that are left out, disks measured by another's line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "text_file.h"

namespace corvane {

/// How much of a kernel's file the compatible reading takes in, in characters.
constexpr size_t COMPATIBLE_TEXT_LENGTH = 40959;

/// "a, b, c"; "none" for none.
std::string Joined(const std::vector<std::string>& names);

/// cpu0, cpu1, ... in the text of /proc/stat, in its order.
std::vector<std::string> CoreNames(const std::string& stat_text);

/// Every interface in the text of /proc/net/dev.
std::vector<std::string> InterfaceNames(const std::string& net_dev_text);

/// Whether the compatible reading measures an interface of this name.
bool IsMeasuredInterface(const std::string& name);

/// The name on the line of /proc/diskstats by which the compatible reading measures a disk; empty:
/// none.
std::string MeasuredDiskName(const std::string& diskstats_text, const std::string& disk);

/// Whether `disk` is `whole` or a partition of it: sda1 of sda, nvme0n1p2 of nvme0n1.
bool IsDiskOrPartition(const std::string& disk, const std::string& whole);

/// The command name of a process, empty when it has gone. Any bytes but NUL.
std::string CommandName(uint32_t pid);

/// The names of a process's threads; none when they cannot be read.
std::vector<std::string> ThreadNames(uint32_t pid);

/// Whether the compatible reading stumbles over a process's or thread's name.
bool HoldsBlank(const std::string& name);

}  // namespace corvane
