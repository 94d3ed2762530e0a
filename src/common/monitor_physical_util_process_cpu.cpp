// CPU of a process (/proc/PID/stat) and of its busiest thread (/proc/PID/task/TID/stat).
#include <dirent.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "monitor_physical_util.h"
#include "monitor_physical_util_internal.h"
#include "monitor_physical_util_log.h"
#include "monitor_physical_util_reading.h"
#include "monitor_physical_util_text.h"

namespace CorvaneCommon {

namespace {

constexpr const char* MACHINE_LINE = "cpu";
constexpr int64_t SLOW_READ_MICROSECONDS = 10000;
constexpr int64_t MICROSECONDS_PER_SECOND = 1000000;
constexpr int64_t NANOSECONDS_PER_MICROSECOND = 1000;
constexpr int32_t MAX_THREAD_PERCENT = 100;
constexpr int NUMBERS_BEFORE_UTIME = 10;      // fields 4 to 13
constexpr int NUMBERS_BEFORE_START_TIME = 4;  // fields 18 to 21
constexpr uint64_t MIN_TICKS = 5;  // a shorter time says nothing: one tick is a fifth of it
constexpr int DECIMAL = 10;

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};

/// Skips to field 14. The command name counts as one word, so a blank in it shifts the fields: the
/// state letter then stands where a number should, and the line is refused.
bool SkipToTimes(const char*& line) {
    return SkipNumbers(line, 1) && SkipWord(line) && SkipWord(line) &&
           SkipNumbers(line, NUMBERS_BEFORE_UTIME);
}

// Differences of running totals wrap modulo 2^64 when a counter fell: one wrong figure, no fault.

uint64_t ProcessTicks(const ProcessCPUInfo& old_info, const ProcessCPUInfo& now_info) {
    return now_info.user + now_info.system + now_info.user_wait + now_info.system_wait -
           old_info.user - old_info.system - old_info.user_wait - old_info.system_wait;
}

uint64_t ThreadTicks(const ThreadCPUInfo& old_info, const ThreadCPUInfo& now_info) {
    return now_info.user - (old_info.system + old_info.user) + now_info.system;
}

/// What each process column and each thread rose by; one that stepped back counts as nothing.
uint64_t ProcessRise(const ProcessCPUInfo& old_info, const ProcessCPUInfo& now_info) {
    // Without children: all of their time would come at once, in the pass they were waited for.
    return Rise(old_info.user, now_info.user) + Rise(old_info.system, now_info.system);
}

uint64_t ThreadRise(const ThreadCPUInfo& old_info, const ThreadCPUInfo& now_info) {
    return Rise(old_info.user, now_info.user) + Rise(old_info.system, now_info.system);
}

using ThreadDifference = uint64_t (*)(const ThreadCPUInfo& old_info, const ThreadCPUInfo& now_info);

/// Threads that only one of the samples holds play no part; empty when they share none. Both maps
/// are in tid order. Only the strict reading knows start times; else all are 0.
std::optional<uint64_t> BusiestThreadTicks(const ProcessCPUInfo& old_info,
                                           const ProcessCPUInfo& now_info,
                                           ThreadDifference difference) {
    std::optional<uint64_t> busiest;
    auto old_thread = old_info.thread_cpu_info.begin();
    const auto old_end = old_info.thread_cpu_info.end();
    for (const auto& [tid, thread] : now_info.thread_cpu_info) {
        while (old_thread != old_end && old_thread->first < tid) {
            ++old_thread;
        }
        if (old_thread != old_end && old_thread->first == tid &&
            old_thread->second.start_time == thread.start_time) {
            busiest = std::max(busiest.value_or(0), difference(old_thread->second, thread));
        }
    }
    return busiest;
}

/// Behind the command name, at the state: names may hold blanks, newlines and parentheses. Null
/// when there is no name.
const char* TextBehindCommand(const char* text) {
    const char* const end = strrchr(text, ')');
    return end == nullptr ? nullptr : end + 1;
}

/// Rounded up; a time that no machine can give in ticks is not above what the type holds.
int32_t PercentOfTime(uint64_t ticks, uint64_t tick_microseconds, uint64_t elapsed_microseconds) {
    const double percent =
        std::ceil(static_cast<double>(ticks) * static_cast<double>(tick_microseconds * PERCENT) /
                  static_cast<double>(elapsed_microseconds));
    return static_cast<int32_t>(std::min<double>(percent, INT32_MAX));
}

/// Keeps a figure that was measured, and none that was not.
void StoreFigure(std::map<uint32_t, int>& results, uint32_t pid, bool measured, int32_t figure) {
    if (measured) {
        results[pid] = figure;
    } else {
        results.erase(pid);
    }
}

/// Raises the peak to the value, or the value to the peak.
void KeepPeak(int32_t& value, int64_t& peak) {
    peak = std::max<int64_t>(peak, value);
    value = static_cast<int32_t>(peak);
}

}  // namespace

int64_t WallClockMicroseconds() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    return now.tv_sec * MICROSECONDS_PER_SECOND + now.tv_usec;
}

int64_t MonotonicMicroseconds() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * MICROSECONDS_PER_SECOND + now.tv_nsec / NANOSECONDS_PER_MICROSECOND;
}

bool ParseProcessTimes(const char* line, ProcessCPUInfo& process_cpu_info) {
    return SkipToTimes(line) && ScanNumber(line, process_cpu_info.user) &&
           ScanNumber(line, process_cpu_info.system) &&
           ScanNumber(line, process_cpu_info.user_wait) &&
           ScanNumber(line, process_cpu_info.system_wait);
}

bool ParseThreadTimes(const char* line, ThreadCPUInfo& thread_cpu_info) {
    return SkipToTimes(line) && ScanNumber(line, thread_cpu_info.user) &&
           ScanNumber(line, thread_cpu_info.system);
}

bool ParseProcessStat(const char* text, ProcessCPUInfo& process_cpu_info) {
    const char* rest = TextBehindCommand(text);
    return rest != nullptr && SkipWord(rest) && SkipNumbers(rest, NUMBERS_BEFORE_UTIME) &&
           ScanNumber(rest, process_cpu_info.user) && ScanNumber(rest, process_cpu_info.system) &&
           ScanNumber(rest, process_cpu_info.user_wait) &&
           ScanNumber(rest, process_cpu_info.system_wait) &&
           SkipNumbers(rest, NUMBERS_BEFORE_START_TIME) &&
           ScanNumber(rest, process_cpu_info.start_time);
}

bool ParseThreadStat(const char* text, ThreadCPUInfo& thread_cpu_info) {
    ProcessCPUInfo as_process;  // the same line
    const bool complete = ParseProcessStat(text, as_process);
    thread_cpu_info.user = as_process.user;
    thread_cpu_info.system = as_process.system;
    thread_cpu_info.start_time = as_process.start_time;
    return complete;
}

int32_t CMonitorPhysicalUtil::GetProcessCPUInfo(ProcessCPUInfo* now_process_cpu_info, uint32_t pid,
                                                bool get_thread_cpu, LogCategory* log_handle) {
    if (now_process_cpu_info == nullptr || pid == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "now_process_cpu_info is NULL or 0 >= pid, now_cpu_info: %p, pid: %u.",
                    static_cast<const void*>(now_process_cpu_info), pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    char buffer[FILE_BUFFER_LENGTH];
    char file_path[MONITOR_NAME_LENGTH];
    FormatProcessPath(file_path, pid, "stat");
    const int64_t start = m_reading->microseconds();
    const int32_t ret = ReadFromFile(buffer, sizeof(buffer), file_path, log_handle, Buffer::Unset);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "ReadFromFile failed, file: %s.", file_path);
        return ret;
    }
    MONITOR_LOG(log_handle, LOG_PRIORITY_TRACE, "ReadFromFile succeed, file: %s.", file_path);
    const int64_t end = m_reading->microseconds();
    if (m_reading->clock_tells_time) {
        now_process_cpu_info->sampled_at = static_cast<uint64_t>(end);
    }
    const int64_t elapsed = end - start;
    if (elapsed > SLOW_READ_MICROSECONDS) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_WARN, "read %s costtime:%luus", file_path,
                    static_cast<uint64_t>(elapsed));
    }
    if (!m_reading->parse_process(buffer, *now_process_cpu_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, file: %s, buf: %s.", file_path,
                    buffer);
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    MONITOR_LOG(log_handle, LOG_PRIORITY_TRACE,
                "sscanf succeed, file: %s, user:%lu, system:%lu, user_wait:%lu, system_wait:%lu",
                file_path, now_process_cpu_info->user, now_process_cpu_info->system,
                now_process_cpu_info->user_wait, now_process_cpu_info->system_wait);
    now_process_cpu_info->max_cpu_utilization = 0;
    now_process_cpu_info->pid = pid;
    if (get_thread_cpu) {
        GetThreadCPUInfo(now_process_cpu_info, pid, buffer, sizeof(buffer), log_handle);
    }
    return 0;
}

void CMonitorPhysicalUtil::GetThreadCPUInfo(ProcessCPUInfo* now_process_cpu_info, uint32_t pid,
                                            char* buffer, uint32_t buffer_length,
                                            LogCategory* log_handle) {
    std::string file_path = "/proc/" + std::to_string(pid) + "/task";
    const std::unique_ptr<DIR, DirCloser> task_dir(opendir(file_path.c_str()));
    if (task_dir == nullptr) {
        // The process's own figures stand; its thread map stays empty.
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "opendir(/proc/%u/task) failed.", pid);
        return;
    }
    file_path += '/';
    const size_t directory_length = file_path.size();
    auto& threads = now_process_cpu_info->thread_cpu_info;
    while (const dirent* const entry = readdir(task_dir.get())) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        file_path.resize(directory_length);
        file_path.append(entry->d_name).append("/stat");
        struct stat status = {};
        if (stat(file_path.c_str(), &status) != 0) {
            continue;  // the thread has ended
        }
        if (ReadFromFile(buffer, buffer_length, file_path.c_str(), log_handle, Buffer::Unset) !=
            0) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "ReadFromFile failed, file: %s.",
                        file_path.c_str());
            continue;
        }
        MONITOR_LOG(log_handle, LOG_PRIORITY_TRACE, "ReadFromFile succeed, file: %s.",
                    file_path.c_str());
        ThreadCPUInfo thread;
        if (!m_reading->parse_thread(buffer, thread)) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, file: %s, buf: %s.",
                        file_path.c_str(), buffer);
            continue;
        }
        MONITOR_LOG(log_handle, LOG_PRIORITY_TRACE,
                    "sscanf succeed, file: %s, utime:%lu, stime:%lu", file_path.c_str(),
                    thread.user, thread.system);
        thread.tid = static_cast<uint32_t>(strtol(entry->d_name, nullptr, DECIMAL));
        // Nearly always in ascending order: the end of the map is the place to look first.
        threads.insert_or_assign(threads.end(), thread.tid, thread);
    }
}

ProcessCPUFigures CMonitorPhysicalUtil::CalcProcessByMachine(const ProcessCPUBaselines& baselines,
                                                             CPUInfo& now_cpu_info,
                                                             ProcessCPUInfo& now_process_cpu_info,
                                                             uint32_t pid,
                                                             bool cal_max_thread_cpu) {
    // A new pid is primed in two calls, the machine's sample before the process's: hosts count on
    // the third pass being the first that measures.
    ProcessCPUFigures figures;
    const auto old_total = baselines.total_cpu_info.find(pid);
    if (old_total == baselines.total_cpu_info.end()) {
        now_cpu_info.max_cpu_utilization = 0;
        baselines.total_cpu_info[pid] = now_cpu_info;
        return figures;
    }
    const auto old_process = baselines.process_cpu_info.find(pid);
    if (old_process == baselines.process_cpu_info.end()) {
        now_process_cpu_info.max_cpu_utilization = 0;
        now_process_cpu_info.max_thread_cpu_utilization = 0;
        // Not operator[]: a failed allocation must not leave an empty sample behind.
        baselines.process_cpu_info.emplace(pid, now_process_cpu_info);
        return figures;
    }
    figures.primed = true;
    const uint64_t elapsed = TotalTicks(now_cpu_info) - TotalTicks(old_total->second);
    if (elapsed == 0) {
        return figures;
    }
    // The machine's ticks span all cores: times the cores, the share is one of a single core.
    const uint64_t scale = m_cpu_core_name.size() * PERCENT;
    const ProcessCPUInfo& old_info = old_process->second;
    const uint64_t thread_ticks =
        cal_max_thread_cpu
            ? BusiestThreadTicks(old_info, now_process_cpu_info, ThreadTicks).value_or(0)
            : 0;
    figures.process =
        CeilQuotient<int32_t>(ProcessTicks(old_info, now_process_cpu_info) * scale, elapsed);
    figures.thread = CeilQuotient<int32_t>(thread_ticks * scale, elapsed);
    return figures;
}

ProcessCPUFigures CMonitorPhysicalUtil::CalcProcessByClock(const ProcessCPUBaselines& baselines,
                                                           CPUInfo& /*now_cpu_info*/,
                                                           ProcessCPUInfo& now_process_cpu_info,
                                                           uint32_t pid, bool cal_max_thread_cpu) {
    ProcessCPUFigures figures;
    figures.process_measured = false;
    figures.thread_measured = false;
    const auto old_process = baselines.process_cpu_info.find(pid);
    if (old_process == baselines.process_cpu_info.end() ||
        old_process->second.start_time != now_process_cpu_info.start_time) {
        now_process_cpu_info.max_cpu_utilization = 0;
        now_process_cpu_info.max_thread_cpu_utilization = 0;
        baselines.process_cpu_info.insert_or_assign(pid, now_process_cpu_info);
        return figures;
    }
    const ProcessCPUInfo& old_info = old_process->second;
    static const auto ticks_per_second = static_cast<uint64_t>(sysconf(_SC_CLK_TCK));
    const uint64_t tick = MICROSECONDS_PER_SECOND / ticks_per_second;
    const uint64_t elapsed = Rise(old_info.sampled_at, now_process_cpu_info.sampled_at);
    if (elapsed < tick * MIN_TICKS) {
        figures.too_soon = true;
        return figures;
    }
    figures.primed = true;
    figures.process_measured = true;
    figures.process = PercentOfTime(ProcessRise(old_info, now_process_cpu_info), tick, elapsed);
    if (!cal_max_thread_cpu) {
        return figures;
    }
    const auto thread_ticks = BusiestThreadTicks(old_info, now_process_cpu_info, ThreadRise);
    figures.thread_measured = thread_ticks.has_value();
    figures.thread = PercentOfTime(thread_ticks.value_or(0), tick, elapsed);
    return figures;
}

int32_t CMonitorPhysicalUtil::CalcProcessCPUSinceBaselines(ProcessCPUFigures& figures,
                                                           const ProcessCPUBaselines& baselines,
                                                           CPUInfo* now_cpu_info,
                                                           ProcessCPUInfo* now_process_cpu_info,
                                                           uint32_t pid, bool cal_max_thread_cpu,
                                                           LogCategory* log_handle) {
    figures = ProcessCPUFigures();
    if (now_cpu_info == nullptr || now_process_cpu_info == nullptr || pid == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "now_cpu_info is NULL or now_process_cpu_info is NULL or 0>= pid, "
                    "now_cpu_info: %p, now_process_cpu_info: %p, pid: %d.",
                    static_cast<const void*>(now_cpu_info),
                    static_cast<const void*>(now_process_cpu_info), pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    figures = (this->*m_reading->calc_process)(baselines, *now_cpu_info, *now_process_cpu_info, pid,
                                               cal_max_thread_cpu);
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcProcessCPUPeaks(ProcessCPUFigures& figures, CPUInfo* now_cpu_info,
                                                  ProcessCPUInfo* now_process_cpu_info,
                                                  uint32_t pid, bool refresh,
                                                  bool cal_max_thread_cpu,
                                                  LogCategory* log_handle) {
    const int32_t ret = CalcProcessCPUSinceBaselines(
        figures, {m_old_total_cpu_info, m_old_process_cpu_info}, now_cpu_info, now_process_cpu_info,
        pid, cal_max_thread_cpu, log_handle);
    if (ret != 0 || !figures.primed) {
        return ret;
    }
    figures.thread = std::min(figures.thread, MAX_THREAD_PERCENT);
    ProcessCPUInfo& old_process_cpu_info = m_old_process_cpu_info[pid];
    KeepPeak(figures.process, old_process_cpu_info.max_cpu_utilization);
    KeepPeak(figures.thread, old_process_cpu_info.max_thread_cpu_utilization);
    if (!refresh) {
        return 0;
    }
    now_process_cpu_info->max_cpu_utilization = figures.process;
    now_process_cpu_info->max_thread_cpu_utilization = figures.thread;
    return 0;
}

void CMonitorPhysicalUtil::StoreProcessBaselines(const CPUInfo& now_cpu_info,
                                                 ProcessCPUInfo&& now_process_cpu_info,
                                                 uint32_t pid) {
    m_old_process_cpu_info[pid] = std::move(now_process_cpu_info);
    if (!m_reading->clock_tells_time) {
        m_old_total_cpu_info[pid] = now_cpu_info;
    }
}

int32_t CMonitorPhysicalUtil::CalcProcessCPUInfo(int32_t& process_cpu_utilization,
                                                 int32_t& max_thread_cpu_utilization,
                                                 CPUInfo* now_cpu_info,
                                                 ProcessCPUInfo* now_process_cpu_info, uint32_t pid,
                                                 bool refresh, bool cal_max_thread_cpu,
                                                 LogCategory* log_handle) {
    process_cpu_utilization = 0;
    max_thread_cpu_utilization = 0;
    ProcessCPUFigures figures;
    const int32_t ret = CalcProcessCPUPeaks(figures, now_cpu_info, now_process_cpu_info, pid,
                                            refresh, cal_max_thread_cpu, log_handle);
    process_cpu_utilization = figures.process;
    max_thread_cpu_utilization = figures.thread;
    if (figures.primed && refresh) {
        // Copied before it is stored: a failed allocation must not move one baseline of the two.
        ProcessCPUInfo baseline = *now_process_cpu_info;
        StoreProcessBaselines(*now_cpu_info, std::move(baseline), pid);
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::CalcProcessCPUInfoForTinyCycle(int32_t& process_cpu_utilization,
                                                             int32_t& max_thread_cpu_utilization,
                                                             CPUInfo* now_cpu_info,
                                                             ProcessCPUInfo* now_process_cpu_info,
                                                             uint32_t pid, bool cal_max_thread_cpu,
                                                             LogCategory* log_handle) {
    // No peak, no limit of 100, and the baselines never move: the figure is the average since the
    // pid was primed.
    process_cpu_utilization = 0;
    max_thread_cpu_utilization = 0;
    ProcessCPUFigures figures;
    const int32_t ret = CalcProcessCPUSinceBaselines(
        figures, {m_old_total_cpu_info_for_tiny_cycle, m_old_process_cpu_info_for_tiny_cycle},
        now_cpu_info, now_process_cpu_info, pid, cal_max_thread_cpu, log_handle);
    process_cpu_utilization = figures.process;
    max_thread_cpu_utilization = figures.thread;
    return ret;
}

int32_t CMonitorPhysicalUtil::GetProcessAndMachineCPUInfo(ProcessCPUInfo* now_process_cpu_info,
                                                          CPUInfo* now_cpu_info, uint32_t pid,
                                                          bool get_thread_cpu,
                                                          LogCategory* log_handle) {
    if (pid == 0 || !IsPIDValid(pid, log_handle)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "0 >= pid or pid not exist pid: %d.", pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    int32_t ret = GetProcessCPUInfo(now_process_cpu_info, pid, get_thread_cpu, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetProcessCPUInfo failed, ret: %d.", ret);
        return ret;
    }
    if (m_reading->clock_tells_time) {
        return 0;
    }
    ret = GetCPUInfo(now_cpu_info, MACHINE_LINE, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetCPUInfo failed, ret: %d.", ret);
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::CalcProcessCPUMonitorInfo(uint32_t pid, LogCategory* log_handle,
                                                        bool cal_max_thread_cpu) {
    ProcessCPUInfo now_process_cpu_info;
    CPUInfo now_cpu_info;
    int32_t ret = GetProcessAndMachineCPUInfo(&now_process_cpu_info, &now_cpu_info, pid,
                                              cal_max_thread_cpu, log_handle);
    if (ret != 0) {
        return ret;
    }
    ProcessCPUFigures figures;
    ret = CalcProcessCPUPeaks(figures, &now_cpu_info, &now_process_cpu_info, pid, true,
                              cal_max_thread_cpu, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "CalcProcessCPUInfo failed, ret: %d.", ret);
        return ret;
    }
    if (figures.too_soon) {
        return 0;
    }
    if (figures.primed) {
        StoreProcessBaselines(now_cpu_info, std::move(now_process_cpu_info), pid);
    }
    StoreFigure(m_process_cpu_result_info, pid, figures.process_measured, figures.process);
    if (cal_max_thread_cpu || !figures.process_measured) {
        StoreFigure(m_process_max_thread_cpu_result_info, pid, figures.thread_measured,
                    figures.thread);
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcProcessCPUMonitorInfoForTinyCycle(uint32_t pid,
                                                                    LogCategory* log_handle) {
    ProcessCPUInfo now_process_cpu_info;
    CPUInfo now_cpu_info;
    int32_t ret =
        GetProcessAndMachineCPUInfo(&now_process_cpu_info, &now_cpu_info, pid, true, log_handle);
    if (ret != 0) {
        return ret;
    }
    ProcessCPUFigures figures;
    ret = CalcProcessCPUSinceBaselines(
        figures, {m_old_total_cpu_info_for_tiny_cycle, m_old_process_cpu_info_for_tiny_cycle},
        &now_cpu_info, &now_process_cpu_info, pid, true, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "CalcProcessCPUInfoForTinyCycle failed, ret: %d.", ret);
        return ret;
    }
    if (figures.too_soon) {
        return 0;
    }
    StoreFigure(m_process_cpu_result_info_for_tiny_cycle, pid, figures.process_measured,
                figures.process);
    StoreFigure(m_process_max_thread_cpu_result_info_for_tiny_cycle, pid, figures.thread_measured,
                figures.thread);
    return 0;
}

int32_t CMonitorPhysicalUtil::GetProcessCPUMonitorInfo(int32_t& process_cpu_utilization,
                                                       uint32_t pid, LogCategory* log_handle) {
    process_cpu_utilization = 0;
    const auto found = m_process_cpu_result_info.find(pid);
    if (found == m_process_cpu_result_info.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "%d Can Not Find Result CPU Monitor Info.",
                    pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    process_cpu_utilization = found->second;
    return 0;
}

int32_t CMonitorPhysicalUtil::GetProcessMaxThreadCPUMonitorInfo(int32_t& max_thread_cpu_utilization,
                                                                uint32_t pid,
                                                                LogCategory* log_handle) {
    max_thread_cpu_utilization = 0;
    const auto found = m_process_max_thread_cpu_result_info.find(pid);
    if (found == m_process_max_thread_cpu_result_info.end()) {
        // The same text as for the process: log searches know both by it.
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "%d Can Not Find Result CPU Monitor Info.",
                    pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    max_thread_cpu_utilization = found->second;
    return 0;
}

int32_t CMonitorPhysicalUtil::GetProcessCPUMonitorInfoForTinyCycle(
    int32_t& process_cpu_utilization, int32_t& max_thread_cpu_utilization, uint32_t pid,
    LogCategory* log_handle) {
    process_cpu_utilization = 0;
    max_thread_cpu_utilization = 0;
    const auto process = m_process_cpu_result_info_for_tiny_cycle.find(pid);
    if (process == m_process_cpu_result_info_for_tiny_cycle.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "%d Can Not Find Result CPU Monitor Info.",
                    pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    process_cpu_utilization = process->second;
    const auto thread = m_process_max_thread_cpu_result_info_for_tiny_cycle.find(pid);
    if (thread == m_process_max_thread_cpu_result_info_for_tiny_cycle.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "%d Can Not Find Result Max Thread CPU Monitor Info.", pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    max_thread_cpu_utilization = thread->second;
    return 0;
}

int32_t CMonitorPhysicalUtil::ClearProcessCPUPhasedCacheValue(LogCategory* /*log_handle*/) {
    for (auto* const process_cpu_infos :
         {&m_old_process_cpu_info, &m_old_process_cpu_info_for_tiny_cycle}) {
        for (auto& [pid, process_cpu_info] : *process_cpu_infos) {
            process_cpu_info.max_cpu_utilization = 0;
            process_cpu_info.max_thread_cpu_utilization = 0;
        }
    }
    return 0;
}

}  // namespace CorvaneCommon
