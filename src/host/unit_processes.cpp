#include "unit_processes.h"

#include <algorithm>
#include <sstream>
#include <tuple>

#include "process_stat.h"
#include "text_file.h"

namespace corvane {

namespace {

std::string Below(const std::string& folder, const std::string& name) {
    return std::string(folder).append("/").append(name);
}

constexpr int MAX_DEPTH = 32;

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Units stand in slices, slices in slices; a user's own units stand deeper, below a service. Names
/// are sorted: the system's slice comes before the users'.
std::string FindBelow(const std::string& folder, const std::string& unit, int depth) {
    const std::vector<std::string> names = NamesIn(folder);
    for (const std::string& name : names) {
        // systemd puts an underscore before a name that a file of the control group could have.
        if (name == unit || name == "_" + unit) {
            return Below(folder, name);
        }
    }
    for (const std::string& name : names) {
        const bool holds_units = EndsWith(name, ".slice") || name.rfind("user@", 0) == 0;
        if (holds_units && depth < MAX_DEPTH) {
            std::string found = FindBelow(Below(folder, name), unit, depth + 1);
            if (!found.empty()) {
                return found;
            }
        }
    }
    return "";
}

void AddProcesses(std::vector<uint32_t>& pids, const std::string& group, int depth) {
    std::istringstream lines(ReadWholeFile(group + "/cgroup.procs"));
    for (uint32_t pid = 0; lines >> pid;) {
        pids.push_back(pid);
    }
    for (const std::string& name : NamesIn(group)) {
        if (depth < MAX_DEPTH) {
            AddProcesses(pids, Below(group, name),
                         depth + 1);  // a file: none
        }
    }
}

}  // namespace

std::string FindUnitGroup(const std::string& unit) {
    const std::string name = unit.find('.') == std::string::npos ? unit + ".service" : unit;
    for (const char* const hierarchy :
         {"/sys/fs/cgroup", "/sys/fs/cgroup/systemd", "/sys/fs/cgroup/unified"}) {
        std::string found = FindBelow(hierarchy, name, 0);
        if (!found.empty()) {
            return found;
        }
    }
    return "";
}

std::vector<uint32_t> ProcessesOfGroup(const std::string& group) {
    std::vector<uint32_t> pids;
    AddProcesses(pids, group, 0);
    return pids;
}

uint32_t MainProcess(const std::vector<uint32_t>& pids) {
    using Rank = std::tuple<bool, uint64_t, uint32_t>;  // has a parent among them, started, pid
    Rank best = {true, UINT64_MAX, 0};
    for (const uint32_t pid : pids) {
        const auto stat = ReadProcessStat(pid);
        if (!stat || stat->HasEnded()) {
            continue;
        }
        const bool child = std::find(pids.begin(), pids.end(), stat->parent) != pids.end();
        best = std::min(best, Rank{child, stat->start_time, pid});
    }
    return std::get<uint32_t>(best);
}

}  // namespace corvane
