#include "monitor_loop.h"

#include <algorithm>
#include <utility>

#include "corvane_error_code.h"
#include "kernel_names.h"

namespace corvane {

namespace {

using CorvaneCommon::MONITOR_NAME_LENGTH;

constexpr size_t MONITORED_TEXT_LENGTH = 40959;  // what a cycle reads of a kernel file
constexpr uint64_t PERCENT = 100;
constexpr uint64_t BYTES_PER_MEGABIT = 1000000 / 8;
constexpr uint64_t BYTES_PER_MIB = uint64_t{1024} * 1024;

std::string Joined(const std::vector<std::string>& names) {
    std::string joined;
    for (const std::string& name : names) {
        joined += (joined.empty() ? "" : ", ") + name;
    }
    return joined.empty() ? "none" : joined;
}

}  // namespace

FigureState FamilyRecord::TakeState() {
    FigureState state = FigureState::Failed;
    if (m_any_succeeded) {
        state = m_last_succeeded ? FigureState::Fresh : FigureState::Stale;
    }
    *this = FamilyRecord();
    return state;
}

MonitorLoop::MonitorLoop(Monitor& monitor, LoopSettings settings, LogCategory* log,
                         Clock::time_point start)
    : m_monitor(monitor),
      m_settings(std::move(settings)),
      m_log(log),
      m_normal(start, m_settings.cycle),
      m_tiny(start, m_settings.tiny_cycle),
      m_report(start, m_settings.report_interval),
      m_core_names(CoreNames(ReadWholeFile("/proc/stat"))),
      m_last_report(start),
      m_network_since(start),
      m_tiny_network_since(start) {
    NoteLimits();
    NoteInterfaces();
    for (const std::string& path : m_settings.directories) {
        RegisterDirectory(path, start);
    }
    for (const uint32_t pid : m_settings.pids) {
        PrimeProcess(pid);
    }
}

void MonitorLoop::NoteLimits() {
    const std::string stat_text = ReadWholeFile("/proc/stat");
    const size_t last_core = stat_text.rfind("\ncpu");
    if (last_core != std::string::npos &&
        stat_text.find('\n', last_core + 1) >= MONITORED_TEXT_LENGTH) {
        m_notes.push_back("CPU: the lines of " + std::to_string(m_core_names.size()) +
                          " cores in /proc/stat are longer than " +
                          std::to_string(MONITORED_TEXT_LENGTH) +
                          " characters; the machine's CPU cannot be measured");
    }
    for (const char* const file : {"/proc/net/dev", "/proc/diskstats"}) {
        if (ReadWholeFile(file).size() > MONITORED_TEXT_LENGTH) {
            m_notes.push_back(std::string(file) + " is longer than " +
                              std::to_string(MONITORED_TEXT_LENGTH) +
                              " characters; what stands beyond cannot be measured");
        }
    }
}

void MonitorLoop::NoteInterfaces() {
    const auto names = InterfaceNames(ReadWholeFile("/proc/net/dev"));
    if (std::none_of(names.begin(), names.end(), IsMeasuredInterface)) {
        m_notes.push_back(
            "network: no interface matched; only names with eth, em or bond in them are measured "
            "(names seen: " +
            Joined(names) + ")");
    }
}

void MonitorLoop::RegisterDirectory(const std::string& path, Clock::time_point now) {
    Directory directory;
    directory.path = path;
    directory.since = now;
    const char* registered = path.c_str();
    char disk[MONITOR_NAME_LENGTH] = {};
    const int32_t status = m_monitor.SetDiskInfo(&registered, 1, m_log);
    if (m_monitor.GetDiskNameByFileName(disk, sizeof(disk), registered, m_log) != 0) {
        m_notes.push_back("directory " + path + ": its disk is not known (status " +
                          std::to_string(status) + ")");
    }
    directory.disk = disk;
    const auto same_disk =
        std::find_if(m_directories.begin(), m_directories.end(), [&](const Directory& other) {
            return !directory.disk.empty() && other.disk == directory.disk;
        });
    directory.measured_as = static_cast<size_t>(same_disk - m_directories.begin());
    if (!directory.disk.empty() && same_disk == m_directories.end()) {
        NoteDisk(directory);
    }
    m_directories.push_back(std::move(directory));
}

void MonitorLoop::NoteDisk(const Directory& directory) {
    // An array is measured by its members, and then the result names no disk.
    CorvaneCommon::DiskIOInfoResult result;
    if (m_monitor.CalcDiskIOMonitorInfo(directory.path.c_str(), 1, false, m_log) == 0 &&
        m_monitor.GetDiskIOMonitorInfo(&result, directory.path.c_str(), m_log) == 0 &&
        result.disk_name[0] == '\0') {
        return;
    }
    const std::string measured = MeasuredDiskName(ReadWholeFile("/proc/diskstats"), directory.disk);
    if (measured.empty()) {
        m_notes.push_back("directory " + directory.path + ": its disk " + directory.disk +
                          " has no line in /proc/diskstats, so no load is shown");
    } else if (!IsDiskOrPartition(directory.disk, measured)) {
        m_notes.push_back("directory " + directory.path + ": its disk " + directory.disk +
                          " is measured by the line of another disk, " + measured +
                          ": do not trust its load");
    }
}

void MonitorLoop::PrimeProcess(uint32_t pid) {
    Process process;
    process.pid = pid;
    process.command = CommandName(pid);
    // The first pass stores the machine's sample, the second the process's; the third measures.
    int32_t status = m_monitor.CalcProcessCPUMonitorInfo(pid, m_log, true);
    if (status == 0) {
        status = m_monitor.CalcProcessCPUMonitorInfo(pid, m_log, true);
    }
    const std::string name = "process " + std::to_string(pid);
    process.gone = status != 0 && !Monitor::IsPIDValid(pid, m_log);
    if (process.gone) {
        m_notes.push_back(name + " does not exist");
    } else if (process.command.find(' ') != std::string::npos) {
        m_notes.push_back(name + ": its CPU cannot be measured, as its command name, " +
                          process.command + ", holds a blank");
    } else {
        const auto threads = UnmeasuredThreadNames(pid);
        if (!threads.empty()) {
            m_notes.push_back(
                name + ": threads whose names hold a blank cannot be measured: " + Joined(threads));
        }
    }
    m_processes.push_back(std::move(process));
}

Clock::time_point MonitorLoop::NextDue() const {
    return std::min({m_normal.Due(), m_tiny.Due(), m_report.Due()});
}

std::optional<Report> MonitorLoop::RunDue(Clock::time_point now) {
    const bool report_due = m_report.IsDue(now);
    // Before the normal cycle moves the baselines that the cores are measured against.
    std::vector<CoreFigures> cores;
    if (report_due && m_settings.cores) {
        cores = ReadCores(now);
    }
    if (m_tiny.IsDue(now)) {
        RunTinyCycle(now);
        m_tiny.Advance(now);
    }
    if (m_normal.IsDue(now)) {
        RunNormalCycle(now);
        m_normal.Advance(now);
    }
    if (!report_due) {
        return std::nullopt;
    }
    Report report;
    report.time = std::chrono::system_clock::now();
    report.measured_at = now;
    report.interval_seconds = ElapsedSeconds(m_last_report, now);
    report.cpu = TakeCpu(std::move(cores));
    report.memory = ReadMemory();
    report.network = TakeNetwork();
    report.directories = TakeDirectories();
    for (Process& process : m_processes) {
        report.processes.push_back(TakeProcess(process));
    }
    m_monitor.ClearProcessCPUPhasedCacheValue(m_log);
    report.notes = TakeNotes();
    m_last_report = now;
    m_report.Advance(now);
    return report;
}

std::vector<std::string> MonitorLoop::TakeNotes() {
    return std::exchange(m_notes, {});
}

// A rediscovery takes the samples of both cycles anew, so that a pass at the same moment would
// measure nothing and call it 0: it counts as failed.

void MonitorLoop::MeasureCpu(Clock::time_point now) {
    int32_t status = COMMON_ERR_INVALID_ARGUMENTS;
    if (m_cores_rediscovered != now) {
        status = m_monitor.CalcCPUMonitorInfo(true, m_log);
    }
    // The peak is kept here: the monitor forgets its own when the cores change, and a figure that
    // no machine can have would hide the others.
    CorvaneCommon::CPUInfoResult result;
    m_monitor.GetCPUMonitorInfo(&result, m_log);
    m_monitor.ClearCPUPhasedCacheValue(m_log);
    if (status == COMMON_ERR_INVALID_ARGUMENTS) {
        m_core_names = CoreNames(ReadWholeFile("/proc/stat"));
    } else if (result.cpu_core_num == 0 || result.cpu_utilization > PERCENT * result.cpu_core_num) {
        status = COMMON_ERR_INVALID_ARGUMENTS;  // counters that fell
    }
    if (status == 0) {
        m_cpu_peak_percent = std::max(m_cpu_peak_percent, result.cpu_utilization);
    }
    m_cpu.Add(status);
}

void MonitorLoop::RunNormalCycle(Clock::time_point now) {
    MeasureCpu(now);
    int32_t network_status = COMMON_ERR_INVALID_ARGUMENTS;
    if (m_network_since != now) {
        network_status =
            m_monitor.CalcNetworkMonitorInfo(ElapsedSeconds(m_network_since, now), true, m_log);
        AddNetworkStatus(network_status, m_network_since, now);
    }
    m_network.Add(network_status);
    for (size_t i = 0; i < m_directories.size(); ++i) {
        Directory& directory = m_directories[i];
        if (directory.measured_as != i) {
            continue;
        }
        const int32_t status = m_monitor.CalcDiskIOMonitorInfo(
            directory.path.c_str(), ElapsedSeconds(directory.since, now), true, m_log);
        directory.io.Add(status);
        if (status == 0) {
            directory.since = now;
        }
    }
    for (Process& process : m_processes) {
        MeasureProcess(process);
    }
}

void MonitorLoop::RunTinyCycle(Clock::time_point now) {
    int32_t cpu_status = COMMON_ERR_INVALID_ARGUMENTS;
    if (m_cores_rediscovered != now) {
        cpu_status = m_monitor.CalcCPUMonitorInfoForTinyCycle(true, m_log);
        if (cpu_status == COMMON_ERR_INVALID_ARGUMENTS) {
            m_cores_rediscovered = now;
        }
    }
    m_tiny_cpu.Add(cpu_status);
    const int32_t status = m_monitor.CalcNetworkMonitorInfoForTinyCycle(
        ElapsedSeconds(m_tiny_network_since, now), true, m_log);
    m_tiny_network.Add(status);
    AddNetworkStatus(status, m_tiny_network_since, now);
}

void MonitorLoop::AddNetworkStatus(int32_t status, Clock::time_point& since,
                                   Clock::time_point now) {
    if (status == 0) {
        since = now;
    } else if (status == COMMON_ERR_INVALID_ARGUMENTS) {
        // Rediscovery took the samples of both cycles anew.
        m_network_since = now;
        m_tiny_network_since = now;
        NoteInterfaces();
    }
}

void MonitorLoop::MeasureProcess(Process& process) {
    if (process.gone) {
        return;
    }
    const int32_t status = m_monitor.CalcProcessCPUMonitorInfo(process.pid, m_log, true);
    process.cpu.Add(status);
    if (status != 0 && !Monitor::IsPIDValid(process.pid, m_log)) {
        // For good: another process that is given this number is not the one asked for.
        process.gone = true;
        m_notes.push_back("process " + std::to_string(process.pid) + " has gone");
    }
}

std::vector<CoreFigures> MonitorLoop::ReadCores(Clock::time_point now) {
    std::vector<CoreFigures> cores;
    for (const std::string& name : m_core_names) {
        CorvaneCommon::CPUInfoResult result;
        const int32_t status = m_monitor.GetCPUMonitorInfo(&result, name.c_str(), false, m_log);
        if (status != 0) {
            if (status == COMMON_ERR_INVALID_ARGUMENTS) {
                m_cores_rediscovered = now;
            }
            m_core_names = CoreNames(ReadWholeFile("/proc/stat"));
            return {};
        }
        cores.push_back({name, result.cpu_utilization});
    }
    return cores;
}

CpuFigures MonitorLoop::TakeCpu(std::vector<CoreFigures> cores) {
    CpuFigures cpu;
    cpu.status.state = m_cpu.TakeState();
    cpu.peak_percent = std::exchange(m_cpu_peak_percent, 0);
    CorvaneCommon::CPUInfoResult latest;
    m_monitor.GetCPUMonitorInfoForTinyCycle(&latest, m_log);
    m_monitor.ClearCPUPhasedCacheValueForTinyCycle(m_log);
    cpu.core_number = latest.cpu_core_num;
    const uint64_t most = PERCENT * latest.cpu_core_num;
    if (m_tiny_cpu.TakeState() == FigureState::Fresh && latest.cpu_utilization <= most) {
        cpu.latest_percent = latest.cpu_utilization;
    }
    cores.erase(std::remove_if(cores.begin(), cores.end(),
                               [](const CoreFigures& core) { return core.percent > PERCENT; }),
                cores.end());
    cpu.cores = std::move(cores);
    return cpu;
}

MemoryFigures MonitorLoop::ReadMemory() {
    MemoryFigures memory;
    CorvaneCommon::MemoryInfo result;
    if (m_monitor.GetMemoryMonitorInfo(&result, m_log) == 0) {
        memory = {{FigureState::Fresh, ""}, result.total_mb, result.use_mb};
    }
    return memory;
}

NetworkFigures MonitorLoop::TakeNetwork() {
    NetworkFigures network;
    network.status.state = m_network.TakeState();
    CorvaneCommon::NetworkInfoResult peak;
    m_monitor.GetNetworkMonitorInfo(&peak, m_log);
    m_monitor.ClearNetWorkPhasedCacheValue(m_log);
    network.receive = {peak.input_bytes_mb * BYTES_PER_MEGABIT, peak.input_nic_name};
    network.transmit = {peak.output_bytes_mb * BYTES_PER_MEGABIT, peak.output_nic_name};
    CorvaneCommon::NetworkInfoResult latest;
    m_monitor.GetNetworkMonitorInfoForTinyCycle(&latest, m_log);
    m_monitor.ClearProcessNetWorkPhasedCacheValueForTinyCycle(m_log);
    if (m_tiny_network.TakeState() == FigureState::Fresh && latest.input_nic_name[0] != '\0') {
        network.interfaces.push_back({latest.input_nic_name,
                                      latest.input_bytes_mb * BYTES_PER_MEGABIT,
                                      latest.output_bytes_mb * BYTES_PER_MEGABIT,
                                      latest.input_packets, latest.output_packets});
    }
    return network;
}

std::vector<DirectoryFigures> MonitorLoop::TakeDirectories() {
    std::vector<DirectoryFigures> all;
    for (size_t i = 0; i < m_directories.size(); ++i) {
        Directory& directory = m_directories[i];
        DirectoryFigures figures;
        figures.directory = directory.path;
        figures.disk = directory.disk;
        if (directory.measured_as != i) {
            const DirectoryFigures& same_disk = all[directory.measured_as];
            figures.io = same_disk.io;
            figures.busy_percent = same_disk.busy_percent;
            figures.operations_per_second = same_disk.operations_per_second;
        } else {
            CorvaneCommon::DiskIOInfoResult io;
            figures.io.state = directory.io.TakeState();
            if (figures.io.state != FigureState::Failed) {
                m_monitor.GetDiskIOMonitorInfo(&io, directory.path.c_str(), m_log);
            }
            figures.busy_percent = io.disk_io_rate;
            figures.operations_per_second = io.disk_iops;
        }
        CorvaneCommon::DiskInfoResult space;
        if (m_monitor.GetDiskMonitorInfo(&space, directory.path.c_str(), m_log) == 0) {
            figures.space.state = FigureState::Fresh;
            figures.total_bytes = space.total_mb * BYTES_PER_MIB;
            figures.used_bytes = space.use_mb * BYTES_PER_MIB;
        }
        all.push_back(std::move(figures));
    }
    m_monitor.ClearDiskIOPhasedcacheValue(m_log);
    return all;
}

ProcessFigures MonitorLoop::TakeProcess(Process& process) {
    ProcessFigures figures;
    figures.pid = process.pid;
    figures.command = process.command;
    figures.target = std::to_string(process.pid);
    figures.running = !process.gone;
    figures.cpu.state = process.cpu.TakeState();
    if (process.gone) {
        figures.cpu.state = FigureState::Failed;
        return figures;
    }
    m_monitor.GetProcessCPUMonitorInfo(figures.cpu_peak_percent, process.pid, m_log);
    int32_t thread_peak_percent = 0;
    if (m_monitor.GetProcessMaxThreadCPUMonitorInfo(thread_peak_percent, process.pid, m_log) == 0) {
        figures.thread_peak_percent = thread_peak_percent;
    }
    const auto most = static_cast<int64_t>(PERCENT * m_monitor.GetCPUCoreNum());
    if (figures.cpu_peak_percent < 0 || figures.cpu_peak_percent > 2 * most) {
        figures.cpu.state = FigureState::Failed;  // a pid used again: the old baseline is not its
    }
    CorvaneCommon::ProcessMemoryInfo memory;
    if (m_monitor.GetProcessMemoryMonitorInfo(&memory, process.pid, m_log) == 0) {
        figures.memory.state = FigureState::Fresh;
        figures.resident_mib = memory.physical_memory_mb;
        figures.virtual_mib = memory.virtual_memory_mb;
    }
    return figures;
}

}  // namespace corvane
