// Watched processes, cycle after cycle: /proc/PID/stat, /proc/PID/task, /proc/PID/status.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cpu_collector.h"
#include "family_record.h"
#include "monitor_physical_util.h"
#include "process_finder.h"
#include "report.h"
#include "schedule.h"
#include "service_settings.h"

namespace corvane {

class ProcessCollector {
public:
    using Monitor = CorvaneCommon::CMonitorPhysicalUtil;

    ProcessCollector(Monitor& monitor, const ServiceSettings& settings);

    /// Begins what may block.
    void Ask(Clock::time_point now);

    /// Finds the processes and measures them; a new one is measured from the next cycle on.
    /// @param cpu what the cycle made of the machine's total, of which the compatible reading
    ///        takes their shares
    void RunCycle(Clock::time_point now, std::chrono::steady_clock::time_point deadline,
                  const CpuCollector& cpu);

    std::vector<ProcessFigures> Take(std::vector<std::string>& notes);

private:
    struct Watched {
        explicit Watched(const ProcessTarget& target) : finder(target), name(target.text) {}

        ProcessFinder finder;
        std::string name;
        Sighting process;
        FamilyRecord cpu;
        int32_t peak_percent = 0;
        std::optional<int32_t> thread_peak_percent;
    };

    bool Pass(uint32_t pid);
    void Prime(Watched& watched);
    void Measure(Watched& watched, const CpuCollector& cpu);
    void ReadMemory(ProcessFigures& figures);
    std::string Reason(uint32_t pid) const;
    static void NoteThreads(ProcessFigures& figures, std::vector<std::string>& notes);

    Monitor& m_monitor;
    const ServiceSettings& m_settings;
    std::vector<Watched> m_watched;
    std::vector<uint32_t> m_passed;  // in this cycle
};

}  // namespace corvane
