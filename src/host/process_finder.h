// Which process a target stands for, cycle after cycle.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "path_probe.h"
#include "process_stat.h"
#include "process_target.h"
#include "report.h"
#include "schedule.h"

namespace corvane {

/// A process, or why there is none.
struct Sighting {
    uint32_t pid = 0;         ///< 0: none
    uint64_t start_time = 0;  ///< tells it from an earlier one of the same number
    FamilyStatus missing;     ///< without one: Absent, it does not run; Failed, unknown
};

class ProcessFinder {
public:
    explicit ProcessFinder(const ProcessTarget& target);

    /// Begins what may block: reading a pid file.
    void Ask(Clock::time_point now);

    /// Looks again. A process that was found stays the one as long as it lives, unless its pid file
    /// names another that lives.
    Sighting Find(Clock::time_point now, std::chrono::steady_clock::time_point deadline);

private:
    Sighting FindByNumber();
    Sighting FindByPidFile(Clock::time_point now, std::chrono::steady_clock::time_point deadline);
    Sighting FindByUnit() const;
    bool StillLives() const;

    ProcessTarget m_target;
    std::optional<PathProbe> m_pid_file;
    Sighting m_known;
    std::optional<Sighting> m_gone;  // of a number, for good
};

}  // namespace corvane
