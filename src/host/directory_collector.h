// Watched directories, cycle after cycle: the load of the disks behind them, by /proc/diskstats,
// and the space of their file systems, by statvfs(3).
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "family_record.h"
#include "monitor_physical_util.h"
#include "path_probe.h"
#include "report.h"
#include "schedule.h"
#include "service_settings.h"

namespace corvane {

class DirectoryCollector {
public:
    using Monitor = CorvaneCommon::CMonitorPhysicalUtil;

    DirectoryCollector(Monitor& monitor, const ServiceSettings& settings);

    /// Begins what may block: asking the directories that the cycle touches.
    void Ask(Clock::time_point now, bool report_due);

    /// Hears what they say, waiting until `deadline`.
    void Listen(Clock::time_point now, std::chrono::steady_clock::time_point deadline);

    /// Measures the disks; then registers directories that answer and were not, or whose device is
    /// another one: those are measured from the next cycle on.
    void RunCycle(Clock::time_point now, std::chrono::steady_clock::time_point deadline);

    std::vector<DirectoryFigures> Take(Clock::time_point now, std::vector<std::string>& notes);

private:
    struct Directory {
        explicit Directory(const std::string& path_) : path(path_), probe(AskSpace, path_) {}

        bool Answers() const { return answer && answer->trouble.text.empty(); }

        std::string path;
        PathProbe probe;
        bool asked = false;                // in this cycle
        std::optional<PathAnswer> answer;  // in this cycle
        bool registered = false;
        uint64_t device = 0;        // st_dev when it was registered
        std::string disk;           // empty: none, or unknown
        std::string measured_line;  // of /proc/diskstats
        FamilyRecord io;
        uint64_t busy_percent = 0;
        uint64_t operations_per_second = 0;
    };

    void MeasureTogether(Clock::time_point now);
    void MeasureOneByOne(Clock::time_point now);
    void Keep(Directory& directory, const Elapsed& elapsed);
    void RegisterNew(Clock::time_point now, std::chrono::steady_clock::time_point deadline);
    std::string MountTableTrouble(Clock::time_point now,
                                  std::chrono::steady_clock::time_point deadline);
    void Register(Directory& directory, Clock::time_point now);
    std::string WhyNotRegistered(uint64_t device) const;
    static std::string WhyNotMeasured(const Directory& directory);
    static void TakeSpace(DirectoryFigures& figures, const PathAnswer& answer);
    void Note(const DirectoryFigures& figures, const Directory& directory,
              std::vector<std::string>& notes) const;

    Monitor& m_monitor;
    const ServiceSettings& m_settings;
    PathProbe m_mount_table;                              // of the compatible reading
    Clock::time_point m_since;                            // the strict reading measures all at once
    std::map<std::string, Clock::time_point> m_since_of;  // the compatible one disk by disk
    std::vector<Directory> m_directories;
};

}  // namespace corvane
