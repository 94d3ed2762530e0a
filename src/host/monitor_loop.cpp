#include "monitor_loop.h"

#include <algorithm>
#include <vector>

#include "text_file.h"

namespace corvane {

namespace {

// For all paths of a cycle together, each waited for once: long enough for threads that a busy
// machine keeps waiting.
constexpr std::chrono::milliseconds PROBE_PATIENCE{500};

/// Discovers the machine anew for the reading that is asked for.
void ChooseReading(CorvaneCommon::CMonitorPhysicalUtil& monitor, const ServiceSettings& settings) {
    std::vector<const char*> interfaces;
    for (const std::string& name : settings.interfaces) {
        interfaces.push_back(name.c_str());
    }
    // A discovery that fails is seen by the cycles.
    monitor.SetNetworkInterfaces(interfaces.data(), static_cast<uint32_t>(interfaces.size()),
                                 settings.log);
    monitor.SetStrictReading(!settings.compatible, settings.log);
}

}  // namespace

MonitorLoop::MonitorLoop(Monitor& monitor, const ServiceSettings& settings, Clock::time_point start)
    : m_monitor(monitor),
      m_settings(settings),
      m_cycle(start, settings.cycle),
      m_tiny_cycle(start, settings.tiny_cycle),
      m_report(start, settings.report_interval),
      m_start(start),
      m_last_report(start),
      m_cpu(monitor, settings),
      m_network(monitor, settings),
      m_directories(monitor, settings),
      m_processes(monitor, settings) {}

Clock::time_point MonitorLoop::NextDue() const {
    return m_start ? *m_start : std::min({m_cycle.Due(), m_tiny_cycle.Due(), m_report.Due()});
}

std::optional<Report> MonitorLoop::RunDue(Clock::time_point now) {
    const auto deadline = std::chrono::steady_clock::now() + PROBE_PATIENCE;
    if (m_start) {
        m_start.reset();
        ChooseReading(m_monitor, m_settings);
        m_network.Start(now);
        m_directories.Ask(now, false);
        m_processes.Ask(now);
        MeasurePaths(now, deadline);
        return std::nullopt;
    }
    const bool report_due = m_report.TakeIfDue(now);
    const bool cycle_due = m_cycle.TakeIfDue(now);
    if (report_due || cycle_due) {
        m_directories.Ask(now, report_due);
        m_processes.Ask(now);
    }
    if (report_due) {
        m_cpu.BeforeReport(now);
    }
    if (m_tiny_cycle.TakeIfDue(now)) {
        m_cpu.RunTinyCycle(now);
    }
    if (cycle_due) {
        m_cpu.RunCycle(now);
        m_network.RunCycle(now);
        MeasurePaths(now, deadline);
    } else if (report_due) {
        m_directories.Listen(now, deadline);
    }
    return report_due ? std::optional(MakeReport(now)) : std::nullopt;
}

void MonitorLoop::MeasurePaths(Clock::time_point now,
                               std::chrono::steady_clock::time_point deadline) {
    m_directories.Listen(now, deadline);
    m_directories.RunCycle(now, deadline);
    m_processes.RunCycle(now, deadline, m_cpu);
}

Report MonitorLoop::MakeReport(Clock::time_point now) {
    Report report;
    report.time = std::chrono::system_clock::now();
    report.measured_at = now;
    report.interval_seconds = ElapsedSeconds(m_last_report, now);
    m_last_report = now;
    report.cpu = m_cpu.Take(report.notes);
    report.memory = ReadMemory(report.notes);
    report.network = m_network.Take(report.notes);
    report.directories = m_directories.Take(now, report.notes);
    report.processes = m_processes.Take(report.notes);
    return report;
}

MemoryFigures MonitorLoop::ReadMemory(std::vector<std::string>& notes) {
    CorvaneCommon::MemoryInfo memory;
    if (m_monitor.GetMemoryMonitorInfo(&memory, m_settings.log) == 0) {
        return {{FigureState::Fresh, ""}, memory.total_mb, memory.use_mb};
    }
    const std::string reason = WhyNothingCameOf("/proc/meminfo", "cannot parse /proc/meminfo");
    notes.push_back("memory: " + reason);
    return {{FigureState::Failed, reason}, 0, 0};
}

}  // namespace corvane
