// The processes of a systemd unit, by the files of its control group.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane {

/// Where a unit's processes are told: "UNIT" below one of the hierarchies that systemd keeps, in
/// any slice. Version 2 of control groups, version 1's named hierarchy, or both at once.
/// @param unit its name; without a suffix, a service
/// @return the control group's folder; empty when there is none: the unit does not run
std::string FindUnitGroup(const std::string& unit);

/// The pids in cgroup.procs of a control group and of those below it.
std::vector<uint32_t> ProcessesOfGroup(const std::string& group);

/// Of these, the one that the unit stands for: what systemd started, and so a process whose parent
/// is none of them; of several the one that started first, then the lowest number. 0: none lives.
uint32_t MainProcess(const std::vector<uint32_t>& pids);

}  // namespace corvane
