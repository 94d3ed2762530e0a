#include "process_collector.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "kernel_names.h"
#include "text_file.h"

namespace corvane {

namespace {

constexpr int64_t PERCENT = 100;
constexpr const char* NEW_PROCESS = "found in the latest cycle, measured from the next one on";

}  // namespace

ProcessCollector::ProcessCollector(Monitor& monitor, const ServiceSettings& settings)
    : m_monitor(monitor), m_settings(settings) {
    for (const ProcessTarget& target : settings.processes) {
        m_watched.emplace_back(target);
    }
}

void ProcessCollector::Ask(Clock::time_point now) {
    for (Watched& watched : m_watched) {
        watched.finder.Ask(now);
    }
}

void ProcessCollector::RunCycle(Clock::time_point now,
                                std::chrono::steady_clock::time_point deadline,
                                const CpuCollector& cpu) {
    m_passed.clear();
    for (Watched& watched : m_watched) {
        const Sighting found = watched.finder.Find(now, deadline);
        const bool same =
            found.pid == watched.process.pid && found.start_time == watched.process.start_time;
        watched.process = found;
        if (found.pid == 0) {
            found.missing.state == FigureState::Absent ? watched.cpu.Absent(found.missing.reason)
                                                       : watched.cpu.Failed(found.missing.reason);
        } else if (!same) {
            Prime(watched);
        } else {
            Measure(watched, cpu);
        }
    }
    // The loop keeps the peaks, so that a process that is found anew begins with none.
    m_monitor.ClearProcessCPUPhasedCacheValue(m_settings.log);
}

/// One pass of the cycle over a process, whatever the number of targets that stand for it.
bool ProcessCollector::Pass(uint32_t pid) {
    if (std::find(m_passed.begin(), m_passed.end(), pid) != m_passed.end()) {
        return true;
    }
    if (m_monitor.CalcProcessCPUMonitorInfo(pid, m_settings.log, true) != 0) {
        return false;
    }
    m_passed.push_back(pid);
    return true;
}

/// Takes the first samples: the process's, in the compatible reading after the machine's.
void ProcessCollector::Prime(Watched& watched) {
    watched.cpu = FamilyRecord();
    watched.peak_percent = 0;
    watched.thread_peak_percent.reset();
    const uint32_t pid = watched.process.pid;
    bool primed = Pass(pid);
    if (primed && m_settings.compatible) {
        primed = m_monitor.CalcProcessCPUMonitorInfo(pid, m_settings.log, true) == 0;
    }
    watched.cpu.Failed(primed ? NEW_PROCESS : Reason(pid));
}

void ProcessCollector::Measure(Watched& watched, const CpuCollector& cpu) {
    const uint32_t pid = watched.process.pid;
    if (!Pass(pid)) {
        watched.cpu.Failed(Reason(pid));
        return;
    }
    int32_t percent = 0;
    if (m_monitor.GetProcessCPUMonitorInfo(percent, pid, m_settings.log) != 0) {
        watched.cpu.Failed(NEW_PROCESS);
        return;
    }
    if (m_settings.compatible && !cpu.Failure().empty()) {
        watched.cpu.Failed(cpu.Failure());
        return;
    }
    if (m_settings.compatible && (percent < 0 || percent > 2 * PERCENT * cpu.CoreNumber())) {
        watched.cpu.Failed("the counters of " + ProcessFile(pid, "stat") + " fell");
        return;
    }
    watched.cpu.Measured();
    watched.peak_percent = std::max(watched.peak_percent, percent);
    int32_t thread_percent = 0;
    if (m_monitor.GetProcessMaxThreadCPUMonitorInfo(thread_percent, pid, m_settings.log) == 0) {
        watched.thread_peak_percent =
            std::max(watched.thread_peak_percent.value_or(0), thread_percent);
    }
}

std::string ProcessCollector::Reason(uint32_t pid) const {
    const std::string command = CommandName(pid);
    if (m_settings.compatible && HoldsBlank(command)) {
        return "its command name \"" + command + "\" holds a blank";
    }
    const std::string path = ProcessFile(pid, "stat");
    return WhyNothingCameOf(path, WhyNothingCameOf("/proc/stat", "cannot parse " + path));
}

void ProcessCollector::ReadMemory(ProcessFigures& figures) {
    CorvaneCommon::ProcessMemoryInfo memory;
    if (m_monitor.GetProcessMemoryMonitorInfo(&memory, figures.pid, m_settings.log) == 0) {
        figures.memory = {FigureState::Fresh, ""};
        figures.resident_mib = memory.physical_memory_mb;
        figures.virtual_mib = memory.virtual_memory_mb;
        return;
    }
    const std::string path = ProcessFile(figures.pid, "status");
    PathTrouble trouble;
    const std::string text = ReadWholeFile(path, &trouble);
    if (!text.empty() && text.find("\nVmSize:") == std::string::npos) {
        figures.memory = {FigureState::Absent, "a thread of the kernel has no memory of its own"};
        return;
    }
    figures.memory.reason = trouble.text.empty() ? "cannot parse " + path : trouble.text;
}

/// The compatible reading leaves threads out whose names hold a blank.
void ProcessCollector::NoteThreads(ProcessFigures& figures, std::vector<std::string>& notes) {
    const std::vector<std::string> names = ThreadNames(figures.pid);
    std::vector<std::string> unmeasured;
    std::copy_if(names.begin(), names.end(), std::back_inserter(unmeasured), HoldsBlank);
    if (unmeasured.size() == names.size()) {
        figures.thread_peak_percent.reset();  // it says 0 of none
    }
    if (!unmeasured.empty() && figures.cpu.HasFigures()) {
        notes.push_back(
            "process " + figures.target +
            ": threads whose names hold a blank are not measured: " + Joined(unmeasured));
    }
}

std::vector<ProcessFigures> ProcessCollector::Take(std::vector<std::string>& notes) {
    std::vector<ProcessFigures> all;
    for (Watched& watched : m_watched) {
        ProcessFigures figures;
        figures.target = watched.name;
        figures.cpu = watched.cpu.Take();
        figures.pid = watched.process.pid;
        figures.running = figures.pid != 0;
        figures.cpu_peak_percent = std::exchange(watched.peak_percent, 0);
        figures.thread_peak_percent = std::exchange(watched.thread_peak_percent, std::nullopt);
        if (figures.running) {
            figures.command = CommandName(figures.pid);
            ReadMemory(figures);
        } else {
            figures.memory = watched.process.missing;
        }
        if (m_settings.compatible && figures.running) {
            NoteThreads(figures, notes);
        }
        if (!figures.cpu.HasFigures() && figures.cpu.reason != NEW_PROCESS) {
            notes.push_back("process " + figures.target + ": " +
                            WithoutDuration(figures.cpu.reason));
        }
        all.push_back(std::move(figures));
    }
    return all;
}

}  // namespace corvane
