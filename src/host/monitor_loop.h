// Drives the monitor as a host does: two cycles on schedules of their own, and a report.
//
// The loop owns no thread and never sleeps: the program waits until NextDue() and calls RunDue().
// All calls of the monitor happen in there.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "monitor_physical_util.h"
#include "report.h"
#include "schedule.h"

namespace corvane {

struct LoopSettings {
    std::chrono::seconds report_interval{1};
    std::chrono::seconds cycle{1};
    std::chrono::seconds tiny_cycle{1};
    std::vector<uint32_t> pids;
    std::vector<std::string> directories;
    bool cores = true;  ///< a figure per core: reads /proc/stat once more per core and report
};

/// How a family of figures fared in the cycles since the last report.
class FamilyRecord {
public:
    void Add(int32_t status) {
        m_last_succeeded = status == 0;
        m_any_succeeded = m_any_succeeded || m_last_succeeded;
    }
    FigureState TakeState();

private:
    bool m_any_succeeded = false;
    bool m_last_succeeded = false;
};

class MonitorLoop {
public:
    using Monitor = CorvaneCommon::CMonitorPhysicalUtil;

    /// Registers the directories and primes the processes, so that the first cycle measures.
    /// `monitor` and `log` must outlive the loop.
    MonitorLoop(Monitor& monitor, LoopSettings settings, LogCategory* log, Clock::time_point start);

    /// When the next cycle or report is due.
    Clock::time_point NextDue() const;

    /// Runs the cycles that are due; gives a report when one is.
    std::optional<Report> RunDue(Clock::time_point now);

    /// What the user should know and has not been told, in words.
    std::vector<std::string> TakeNotes();

private:
    struct Directory {
        std::string path;
        std::string disk;
        size_t measured_as = 0;  // the first directory on the same disk: a disk is measured once
        Clock::time_point since;
        FamilyRecord io;
    };
    struct Process {
        uint32_t pid = 0;
        std::string command;
        bool gone = false;
        FamilyRecord cpu;
    };

    void NoteLimits();
    void NoteInterfaces();
    void RegisterDirectory(const std::string& path, Clock::time_point now);
    void NoteDisk(const Directory& directory);
    void PrimeProcess(uint32_t pid);

    void RunNormalCycle(Clock::time_point now);
    void MeasureCpu(Clock::time_point now);
    void RunTinyCycle(Clock::time_point now);
    void AddNetworkStatus(int32_t status, Clock::time_point& since, Clock::time_point now);
    void MeasureProcess(Process& process);

    std::vector<CoreFigures> ReadCores(Clock::time_point now);
    CpuFigures TakeCpu(std::vector<CoreFigures> cores);
    MemoryFigures ReadMemory();
    NetworkFigures TakeNetwork();
    std::vector<DirectoryFigures> TakeDirectories();
    ProcessFigures TakeProcess(Process& process);

    Monitor& m_monitor;
    LoopSettings m_settings;
    LogCategory* m_log;
    Schedule m_normal;
    Schedule m_tiny;
    Schedule m_report;
    std::vector<std::string> m_core_names;
    std::vector<Directory> m_directories;
    std::vector<Process> m_processes;
    std::vector<std::string> m_notes;
    uint32_t m_cpu_peak_percent = 0;
    Clock::time_point m_last_report;
    Clock::time_point m_cores_rediscovered;
    Clock::time_point m_network_since;
    Clock::time_point m_tiny_network_since;
    FamilyRecord m_cpu;
    FamilyRecord m_tiny_cpu;
    FamilyRecord m_network;
    FamilyRecord m_tiny_network;
};

}  // namespace corvane
