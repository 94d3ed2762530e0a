// Drives the monitor as a host does: two cycles on schedules of their own, and a report.
//
// The loop never sleeps and its calls of the monitor all happen in RunDue(): its owner waits until
// NextDue() and calls that. What may block on a path is asked on threads of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cpu_collector.h"
#include "directory_collector.h"
#include "monitor_physical_util.h"
#include "network_collector.h"
#include "process_collector.h"
#include "report.h"
#include "schedule.h"
#include "service_settings.h"

namespace corvane {

class MonitorLoop {
public:
    using Monitor = CorvaneCommon::CMonitorPhysicalUtil;

    /// `monitor` and the complete `settings` must outlive the loop.
    MonitorLoop(Monitor& monitor, const ServiceSettings& settings, Clock::time_point start);

    /// When the next cycle or report is due; at first at once, for the first samples.
    Clock::time_point NextDue() const;

    /// Runs the cycles that are due; gives a report when one is. Also when it throws, as
    /// std::bad_alloc, what was due is due again only after its interval.
    std::optional<Report> RunDue(Clock::time_point now);

private:
    void MeasurePaths(Clock::time_point now, std::chrono::steady_clock::time_point deadline);
    Report MakeReport(Clock::time_point now);
    MemoryFigures ReadMemory(std::vector<std::string>& notes);

    Monitor& m_monitor;
    const ServiceSettings& m_settings;
    Schedule m_cycle;
    Schedule m_tiny_cycle;
    Schedule m_report;
    std::optional<Clock::time_point> m_start;  // until the first samples are taken
    Clock::time_point m_last_report;
    CpuCollector m_cpu;
    NetworkCollector m_network;
    DirectoryCollector m_directories;
    ProcessCollector m_processes;
};

}  // namespace corvane
