// Host and process resource monitor for Linux servers: CPU, memory, network, disks, disk space.
//
// A server process calls CMonitorPhysicalUtil::GetInstance() and drives it: a Calc operation per
// cycle, then, when it reports, the Get operations and the matching Clear operations. The monitor
// owns no thread and no timer and keeps no file open between calls.
//
// Two cycles stand side by side. The normal cycle keeps the peak since the last Clear; the tiny
// cycle (operations ending in ForTinyCycle) runs on a schedule of its own and keeps the latest
// figure. Rates come from the difference of two samples of the kernel's running totals; each
// operation's `refresh` says whether its sample becomes the next call's baseline.
//
// Threads: nothing but the first GetInstance() is synchronised; a host that calls from several
// threads serialises the calls. Ownership: records and buffers belong to the caller, text returned
// lives as long as the instance.
//
// Status: 0 or a COMMON_ERR_ code (corvane_error_code.h). Every failure is also one or more records
// of priority ERROR in the category passed as `log_handle`, which may be null. Numbers in kernel
// files are read as 64-bit unsigned; more digits than fit read as 2^64 - 1. An allocation that
// fails can leave an operation as std::bad_alloc; nothing else is thrown.
//
// Kernel files are read in one of two ways. The compatible reading, the default, finds names as
// text and reads up to 40959 characters of a file; the operations say what follows.
// SetStrictReading() chooses the strict one, in which fields are compared whole, files are read
// whole, and a figure is either true or a failure.
//
// A call needs up to 96 KiB of stack, besides what the host's log writer takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "corvane_error_code.h"
#include "log_category.h"

/// Defined by the host (corvane_host has one on std::filesystem::space): size and free space of
/// the file system that holds `file_path`, both in MiB. Returns 0, or a status that
/// GetDiskMonitorInfo hands on unchanged.
int32_t GetDiskSize(uint64_t& total, uint64_t& free, const char* file_path,
                    LogCategory* log_handle);

namespace CorvaneCommon {

class KernelText;          // internal
struct MountEntry;         // internal
struct ProcessCPUFigures;  // internal

constexpr size_t MONITOR_NAME_LENGTH = 128;   ///< every name and path in a record, NUL included
constexpr size_t MONITOR_MAX_DISK_NUM = 128;  ///< rows of the table of registered disks

/// One "cpu" line of /proc/stat. Running totals in clock ticks. iowait is part of the total but not
/// busy; guest time is inside `user`.
struct CPUInfo {
    CPUInfo() = default;                ///< empty names, every number 0
    CPUInfo(const CPUInfo&) = default;  ///< a plain copy
    /// Copies names up to their NUL, cut to 127 characters, and every number.
    CPUInfo& operator=(const CPUInfo& other);
    ~CPUInfo() = default;

    char cpu_core_name[MONITOR_NAME_LENGTH] = {};  ///< "cpu" for the machine, else cpu0, cpu1, ...
    uint64_t user = 0;                             ///< column 1: user mode
    uint64_t nice = 0;                             ///< column 2: user mode at low priority
    uint64_t system = 0;                           ///< column 3: kernel mode
    uint64_t idle = 0;                             ///< column 4
    uint64_t iowait = 0;                           ///< column 5: idle with I/O outstanding
    uint64_t irq = 0;                              ///< column 6
    uint64_t softirq = 0;                          ///< column 7
    uint64_t max_cpu_utilization = 0;              ///< stored sample: peak or latest whole percent
    uint64_t steal = 0;  ///< column 8, strict reading only: part of the total, not busy
};

/// CPU utilisation as the host receives it.
struct CPUInfoResult {
    uint32_t cpu_core_num = 0;     ///< cores known from /proc/stat
    uint32_t cpu_utilization = 0;  ///< whole percent, rounded up; the machine: sum over its cores
};

/// One core as the latest normal pass found it.
struct CPUCoreInfo {
    char cpu_core_name[MONITOR_NAME_LENGTH] = {};  ///< cpu0, cpu1, ...
    uint32_t cpu_utilization = 0;                  ///< whole percent, rounded up
};

/// One thread's CPU time: /proc/PID/task/TID/stat, running totals in clock ticks.
struct ThreadCPUInfo {
    uint32_t tid = 0;         ///< name of the entry under /proc/PID/task
    uint64_t user = 0;        ///< field 14, utime
    uint64_t system = 0;      ///< field 15, stime
    uint64_t start_time = 0;  ///< field 22, strict reading only: ticks since boot, tells it apart
                              ///< from another thread that is given the same number
};

/// One process's CPU time: /proc/PID/stat, running totals in clock ticks.
struct ProcessCPUInfo {
    uint32_t pid = 0;                        ///< process sampled
    uint64_t user = 0;                       ///< field 14, utime
    uint64_t system = 0;                     ///< field 15, stime
    uint64_t user_wait = 0;                  ///< field 16, cutime: children waited for
    uint64_t system_wait = 0;                ///< field 17, cstime: children waited for
    int64_t max_cpu_utilization = 0;         ///< peak of the process, whole percent of one core
    int64_t max_thread_cpu_utilization = 0;  ///< peak of its busiest thread, whole percent
    std::map<uint32_t, ThreadCPUInfo> thread_cpu_info;  ///< threads sampled, by tid
    uint64_t start_time = 0;  ///< field 22, strict reading only: ticks since boot
    uint64_t sampled_at = 0;  ///< strict reading only: microseconds of CLOCK_MONOTONIC
};

/// Memory of the machine, from /proc/meminfo.
struct MemoryInfo {
    uint64_t total_mb = 0;  ///< MemTotal in MiB, truncated
    uint64_t use_mb = 0;    ///< Shmem - (Buffers + MemFree) - Cached + MemTotal, in MiB, truncated
};

/// Memory of one process, from /proc/PID/status.
struct ProcessMemoryInfo {
    uint64_t physical_memory_mb = 0;  ///< VmRSS in MiB, truncated
    uint64_t virtual_memory_mb = 0;   ///< VmSize in MiB, truncated
};

/// One interface's line of /proc/net/dev: running totals since boot.
struct NetworkInfo {
    NetworkInfo() = default;                    ///< empty names, every number 0
    NetworkInfo(const NetworkInfo&) = default;  ///< a plain copy
    /// Copies names up to their NUL, cut to 127 characters, and every number.
    NetworkInfo& operator=(const NetworkInfo& other);
    ~NetworkInfo() = default;

    char nic_name[MONITOR_NAME_LENGTH] = {};  ///< may be empty in a stored sample: the key names it
    uint64_t input_bytes = 0;                 ///< column 1
    uint64_t input_packets = 0;               ///< column 2
    uint64_t output_bytes = 0;                ///< column 9
    uint64_t output_packets = 0;              ///< column 10
    uint64_t max_network_input_bytes_mb = 0;  ///< stored sample: peak receive rate, Mbit/s
    uint64_t max_network_output_bytes_mb = 0;  ///< stored sample: peak transmit rate, Mbit/s
};

/// Traffic rates as the host receives them. Megabits are decimal (1,000,000 bits), truncated.
struct NetworkInfoResult {
    NetworkInfoResult() = default;                          ///< empty names, every number 0
    NetworkInfoResult(const NetworkInfoResult&) = default;  ///< a plain copy
    /// Copies names up to their NUL, cut to 127 characters, and every number.
    NetworkInfoResult& operator=(const NetworkInfoResult& other);
    ~NetworkInfoResult() = default;

    char input_nic_name[MONITOR_NAME_LENGTH] = {};   ///< interface of `input_bytes_mb`
    char output_nic_name[MONITOR_NAME_LENGTH] = {};  ///< interface of `output_bytes_mb`
    uint64_t input_bytes_mb = 0;                     ///< receive rate, Mbit/s
    uint64_t output_bytes_mb = 0;                    ///< transmit rate, Mbit/s
    uint64_t input_packets = 0;                      ///< packets received per second
    uint64_t output_packets = 0;                     ///< packets transmitted per second
};

/// One interface as the latest normal pass found it. Strict reading only.
struct NetworkInterfaceInfo {
    char nic_name[MONITOR_NAME_LENGTH] = {};  ///< before the colon of its line
    uint64_t input_bytes = 0;                 ///< received, bytes per second, truncated
    uint64_t input_packets = 0;               ///< received, packets per second
    uint64_t output_bytes = 0;                ///< transmitted, bytes per second, truncated
    uint64_t output_packets = 0;              ///< transmitted, packets per second
};

/// Names of the registered disks.
struct DiskNameInfoResult {
    char disk_name[MONITOR_MAX_DISK_NUM][MONITOR_NAME_LENGTH] = {};  ///< in registration order
    uint32_t disk_number = 0;                                        ///< rows used
};

/// Load of the disk behind one directory.
struct DiskIOInfoResult {
    char disk_name[MONITOR_NAME_LENGTH] = {};  ///< disk measured; for a RAID array empty, in the
                                               ///< strict reading its own name
    uint32_t disk_io_rate = 0;  ///< percent of the interval with I/O in flight, 0 to 100; on a
                                ///< device with many queues 100 does not mean saturated
    uint32_t disk_iops = 0;     ///< reads plus writes completed per second
};

/// Space of the file system that holds one path.
struct DiskInfoResult {
    char file_path[MONITOR_NAME_LENGTH] = {};  ///< as passed, cut to 127 characters
    uint64_t total_mb = 0;                     ///< MiB
    uint64_t use_mb = 0;                       ///< MiB: total minus the free MiB of GetDiskSize
};

/// One device's line of /proc/diskstats: running totals, except `ios_currently_in_progress`.
struct DiskIOInfo {
    char device_name[MONITOR_NAME_LENGTH] = {};  ///< key of the stored sample, or name on the line
    uint64_t reads_completed = 0;                ///< number 1 after the name
    uint64_t reads_merged = 0;                   ///< number 2
    uint64_t sectors_read = 0;                   ///< number 3
    uint64_t time_spent_reading = 0;             ///< number 4, milliseconds
    uint64_t writes_completed = 0;               ///< number 5
    uint64_t writes_merged = 0;                  ///< number 6
    uint64_t sectors_written = 0;                ///< number 7
    uint64_t time_spent_writing = 0;             ///< number 8, milliseconds
    uint64_t ios_currently_in_progress = 0;      ///< number 9, a gauge
    uint64_t time_spent_doing_ios = 0;           ///< number 10, milliseconds
    uint64_t weighted_time_spent_doing_ios = 0;  ///< number 11, milliseconds
    uint32_t max_disk_io_rate = 0;               ///< stored sample: peak percent since the clear
    uint32_t max_disk_iops = 0;                  ///< stored sample: peak since the clear
};

/// The monitor: one object per process. Caches are kept per core, interface, disk and pid and are
/// never pruned.
class CMonitorPhysicalUtil {
public:
    CMonitorPhysicalUtil(const CMonitorPhysicalUtil&) = delete;
    CMonitorPhysicalUtil& operator=(const CMonitorPhysicalUtil&) = delete;
    ~CMonitorPhysicalUtil() = default;

    // ---- Instance ----

    /// The one instance; lives until the process exits. The first call constructs it, which
    /// discovers the interfaces and then the cores and takes their first samples; a discovery that
    /// fails leaves the instance usable. Safe to call from several threads.
    static CMonitorPhysicalUtil* GetInstance();

    /// Processors online now, from sysconf. May differ from the cores known from /proc/stat.
    uint32_t GetCPUCoreNum();

    /// Directory that disk monitoring uses by default: "/". The text lives as long as the program.
    const char* GetDefaultDiskFilePath() const;

    // ---- File and process checks: no state, never log ----

    /// Whether the path exists, to this process's eyes. False for null.
    static bool IsFileExist(const char* file_path);

    /// Whether /proc/PID/ exists. True for a thread's id too, as the kernel shows those there.
    static bool IsPIDValid(uint32_t pid, LogCategory* log_handle);

    // ---- CPU of the machine and its cores: /proc/stat ----

    /// One normal-cycle pass: every known core against its stored sample, summed; the sum raises
    /// the peak. The first pass measures from construction.
    /// @param refresh whether this sample becomes the baseline of the next pass
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS when the cores changed (they are then discovered
    ///         anew, with baselines for both cycles, and both machine figures are 0) or a line
    ///         has no end or no name that fits; COMMON_ERR_LINUX_SYSTEM_CALL_FAIL when the file
    ///         cannot be read or a line's numbers not parsed; COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE
    ///         when a core has no stored sample. On any other failure the peak is as it was, and
    ///         cores before the fault keep new baselines.
    ///
    /// Cores are found as text, in file order: when cpu1 goes and cpu10 comes between two passes,
    /// and no known core stands behind, a pass mixes the two until one has refreshed. Counters
    /// that fall give one wrong figure, which stays in the peak until it is cleared. A core beyond
    /// 40959 characters of the file fails every pass; so does a file with the machine's line alone.
    int32_t CalcCPUMonitorInfo(bool refresh, LogCategory* log_handle);

    /// The peak of the normal cycle since the last clear: 0 to 100 times the cores. Reads no file.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS for a null record.
    int32_t GetCPUMonitorInfo(CPUInfoResult* cpu_info_result, LogCategory* log_handle);

    /// Samples one line of /proc/stat now ("cpu" for the whole machine on the scale 0 to 100, or
    /// cpu0, cpu1, ...) against the normal cycle's stored sample. The figure is the higher of now
    /// and the line's peak, and raises that peak; a normal pass with `refresh` overwrites the peak
    /// of every core, so it reaches back to the last pass (for "cpu": to the last clear or
    /// discovery). The first text that holds the name is read: cpu1's is cpu10's when cpu1 is gone.
    /// @param refresh whether this sample becomes the normal cycle's baseline of the line
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for a null or empty argument, or when the name is
    ///         not in the file (the cores are then discovered anew) or its line has no end;
    ///         COMMON_ERR_LINUX_SYSTEM_CALL_FAIL when the file cannot be read or the line not
    ///         parsed; COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE for a name that was never discovered.
    ///         On failure the utilisation is 0 (a bad argument leaves the record alone). Cores
    ///         discovered anew have new samples, and both machine figures are then 0.
    int32_t GetCPUMonitorInfo(CPUInfoResult* cpu_info_result, const char* cpu_core_name,
                              bool refresh, LogCategory* log_handle);

    /// Sets the machine's and every line's peak of the normal cycle to 0. Always 0, logs nothing.
    int32_t ClearCPUPhasedCacheValue(LogCategory* log_handle);

    /// As CalcCPUMonitorInfo, on the tiny cycle's own samples; keeps the latest sum, not a peak.
    int32_t CalcCPUMonitorInfoForTinyCycle(bool refresh, LogCategory* log_handle);

    /// The sum of the latest successful tiny pass. Reads no file.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS for a null record.
    int32_t GetCPUMonitorInfoForTinyCycle(CPUInfoResult* cpu_info_result, LogCategory* log_handle);

    /// Sets the tiny cycle's machine figure to 0. Always 0, logs nothing.
    int32_t ClearCPUPhasedCacheValueForTinyCycle(LogCategory* log_handle);

    // ---- CPU of a process and of its busiest thread: /proc/PID/stat, /proc/PID/task ----
    //
    // Figures are whole percent of one core, rounded up: a process that keeps 2.5 cores busy reads
    // 250. A new pid is primed by two passes that succeed with 0; the third measures. Results stay
    // per pid until the next successful pass, also when the process has gone. A pid that is used
    // again continues from the old samples, and its figures may be negative: in the normal cycle
    // one wrong figure, which stays in the peak if it is high; in the tiny cycle all of them.
    //
    // A command name with a blank in it cannot be read: such a process always fails with
    // COMMON_ERR_LINUX_SYSTEM_CALL_FAIL, such a thread is left out with an ERROR record. Name
    // processes and threads without blanks.

    /// One normal-cycle pass for a process. Keeps peaks; its samples become the next baseline.
    /// @param cal_max_thread_cpu whether to walk the threads too: opens one file a thread. A thread
    ///        is measured when the pass before walked it as well: walk them in every pass or in
    ///        none
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for a pid that is 0 or does not exist; the code of
    ///         the step that failed otherwise. On failure the process's results and baselines
    ///         stay. A /proc/stat without a "cpu" line makes the cores be discovered anew, as in
    ///         CalcCPUMonitorInfo. Threads that cannot be read never fail a pass.
    int32_t CalcProcessCPUMonitorInfo(uint32_t pid, LogCategory* log_handle,
                                      bool cal_max_thread_cpu);

    /// The process's peak since the last clear, as the last normal pass found it. Reads no file.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS (figure 0) for a pid without a successful pass.
    int32_t GetProcessCPUMonitorInfo(int32_t& process_cpu_utilization, uint32_t pid,
                                     LogCategory* log_handle);

    /// The busiest thread's peak, at most 100, as the last normal pass with threads found it.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS (figure 0) for a pid without such a pass.
    int32_t GetProcessMaxThreadCPUMonitorInfo(int32_t& max_thread_cpu_utilization, uint32_t pid,
                                              LogCategory* log_handle);

    /// Sets the peaks of every pid to 0; results and baselines stay. Always 0, logs nothing.
    int32_t ClearProcessCPUPhasedCacheValue(LogCategory* log_handle);

    /// The tiny cycle's computation on samples that the caller took: a first call per pid stores
    /// the machine's sample, a second the process's, later ones measure against those two, which
    /// never move. Sets both records' peak fields to 0 where it stores them.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS (figures 0) for a null record or pid 0.
    int32_t CalcProcessCPUInfoForTinyCycle(int32_t& process_cpu_utilization,
                                           int32_t& max_thread_cpu_utilization,
                                           CPUInfo* now_cpu_info,
                                           ProcessCPUInfo* now_process_cpu_info, uint32_t pid,
                                           bool cal_max_thread_cpu, LogCategory* log_handle);

    /// One tiny-cycle pass for a process, always with threads. The figures are averages since the
    /// pid was primed, without peaks, and the thread's is not limited to 100.
    /// @return as CalcProcessCPUMonitorInfo.
    int32_t CalcProcessCPUMonitorInfoForTinyCycle(uint32_t pid, LogCategory* log_handle);

    /// Both figures of the last successful tiny pass. Reads no file.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS for a pid without one; a figure that is missing
    ///         is 0.
    int32_t GetProcessCPUMonitorInfoForTinyCycle(int32_t& process_cpu_utilization,
                                                 int32_t& max_thread_cpu_utilization, uint32_t pid,
                                                 LogCategory* log_handle);

    // ---- Memory: /proc/meminfo, /proc/PID/status; no state, each call reads afresh ----

    /// Memory of the machine. In use is MemTotal - MemFree - Buffers - Cached + Shmem: shared
    /// memory is counted inside Cached and is in use. MemTotal 1000000, MemFree 200000, Buffers
    /// 50000, Cached 300000, Shmem 10000 kB give 460000 kB, 449 MiB. `free` shows another figure.
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for a null record or a missing or unfinished line;
    ///         COMMON_ERR_LINUX_SYSTEM_CALL_FAIL when the file cannot be read or holds no number.
    ///         On failure `total_mb` may hold MemTotal in kB and `use_mb` is 0: ignore the record.
    int32_t GetMemoryMonitorInfo(MemoryInfo* memory_info, LogCategory* log_handle);

    /// Memory of one process. A kernel thread has none: COMMON_ERR_INVALID_ARGUMENTS.
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for a null record, a pid that is 0 or does not
    ///         exist, or a missing or unfinished line; COMMON_ERR_LINUX_SYSTEM_CALL_FAIL when the
    ///         file cannot be read or holds no number. On failure a field may hold kB: ignore the
    ///         record.
    int32_t GetProcessMemoryMonitorInfo(ProcessMemoryInfo* process_memory_info, uint32_t pid,
                                        LogCategory* log_handle);

    // ---- Network of the machine: /proc/net/dev ----
    //
    // Interfaces are the lines that hold "eth", "em" or "bond" anywhere: ens5, enp3s0, eno1, ib0
    // and lo are not seen, ovs-system is by its "em".
    //
    // They are found again as text, each behind the one before. A line that holds a known name and
    // stands in front of it, or in its place, is taken for it: veth1 gives its figures as eth1's;
    // eth10 or veth1a fails every pass with COMMON_ERR_LINUX_SYSTEM_CALL_FAIL until it goes. The
    // same holds for an interface asked for by name.
    //
    // An interface that is added is noticed only when one that is looked for is missing. When a
    // discovery finds none, passes succeed and measure nothing until an interface that is not in
    // the file is asked for by name. One beyond 40959 characters of the file fails every pass.
    // `time_interval` is in whole seconds, never 0. A counter that fell gives 0 for that figure.

    /// One normal-cycle pass over all interfaces; raises the busiest interface's peak per
    /// direction. On a tie the interface that reached the value first keeps its name.
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for an interval of 0, when an interface's name is
    ///         gone (interfaces are then discovered anew with peaks and baselines of their own, in
    ///         all cycles, for the next pass) or a line has no end;
    ///         COMMON_ERR_LINUX_SYSTEM_CALL_FAIL when the file cannot be read or a line not parsed.
    ///         On failure interfaces before the fault keep their update.
    int32_t CalcNetworkMonitorInfo(uint64_t time_interval, bool refresh, LogCategory* log_handle);

    /// The peaks of the normal cycle since the last clear, each with its interface's name. The
    /// packet figures are always 0 here. Reads no file.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS for a null record.
    int32_t GetNetworkMonitorInfo(NetworkInfoResult* network_info_result, LogCategory* log_handle);

    /// Samples one interface now against the normal cycle's stored sample: peak byte rates of this
    /// interface, current packet rates, both names empty. With `refresh` its baseline moves for the
    /// normal cycle too.
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for a null, empty or 0 argument, a name that is not
    ///         in the file (the interfaces are then discovered anew) or a line without an end;
    ///         COMMON_ERR_LINUX_SYSTEM_CALL_FAIL when the file cannot be read or the line not
    ///         parsed; COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE (record emptied) for a name that was
    ///         never discovered. On other failures the record is untouched.
    int32_t GetNetworkMonitorInfo(NetworkInfoResult* network_info_result, const char* nic_name,
                                  uint64_t time_interval, bool refresh, LogCategory* log_handle);

    /// Empties the normal cycle's result and sets every interface's peaks to 0. Always 0, logs
    /// nothing.
    int32_t ClearNetWorkPhasedCacheValue(LogCategory* log_handle);

    /// The tiny cycle's computation for one interface on a sample that the caller took: current
    /// rates, names empty.
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for a null record or an interval of 0;
    ///         COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE (record emptied) for an unknown interface.
    int32_t CalcNetworkInfoForTinyCycle(NetworkInfoResult* network_info_result,
                                        NetworkInfo* now_network_info, const char* nic_name,
                                        uint64_t time_interval, bool refresh,
                                        LogCategory* log_handle);

    /// One tiny-cycle pass: the current rates of the interface discovered as exactly "eth1", and
    /// of no other. Without an eth1 it succeeds and the result keeps its content.
    /// @return as CalcNetworkMonitorInfo.
    int32_t CalcNetworkMonitorInfoForTinyCycle(uint64_t time_interval, bool refresh,
                                               LogCategory* log_handle);

    /// The rates of eth1 as the last tiny pass found them, packets included. Reads no file. Cleared
    /// by ClearProcessNetWorkPhasedCacheValueForTinyCycle.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS for a null record.
    int32_t GetNetworkMonitorInfoForTinyCycle(NetworkInfoResult* network_info_result,
                                              LogCategory* log_handle);

    // ---- Network of a process's namespace: /proc/PID/net/dev ----

    /// Reads /proc/PID/net/dev into the caller's buffer, which must be cleared before.
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for pid 0, a null buffer or length 0;
    ///         COMMON_ERR_LINUX_SYSTEM_CALL_FAIL when the file cannot be read.
    int32_t GetProcessRawNetworkInfo(char* raw_network_info, uint32_t raw_network_info_length,
                                     uint32_t pid, LogCategory* log_handle);

    /// As CalcNetworkInfoForTinyCycle, on the process cycle's samples.
    int32_t CalcProcessNetworkInfoForTinyCycle(NetworkInfoResult* network_info_result,
                                               NetworkInfo* now_network_info, const char* nic_name,
                                               uint64_t time_interval, bool refresh,
                                               LogCategory* log_handle);

    /// One tiny-cycle pass over a process's namespace: the current rates of "eth1" there. The
    /// namespace must hold the machine's interfaces in the machine's order. Samples are kept per
    /// interface, not per pid: measure one pid per instance.
    /// @return as CalcNetworkMonitorInfo; COMMON_ERR_INVALID_ARGUMENTS also for a pid that is 0 or
    ///         does not exist. A rediscovery reads the machine's own file.
    int32_t CalcProcessNetworkMonitorInfoForTinyCycle(uint32_t pid, uint64_t time_interval,
                                                      bool refresh, LogCategory* log_handle);

    /// The rates of eth1 as the last pass over a process's namespace found them. Reads no file.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS for a null record.
    int32_t GetProcessNetworkMonitorInfoForTinyCycle(NetworkInfoResult* network_info_result,
                                                     LogCategory* log_handle);

    /// Empties the results of both tiny cycles, the machine's and the process's, and their peaks.
    /// Always 0, logs nothing.
    int32_t ClearProcessNetWorkPhasedCacheValueForTinyCycle(LogCategory* log_handle);

    // ---- Disks: /etc/mtab, /proc/mdstat, /proc/diskstats ----
    //
    // A directory's disk is the last component of its mounted device (/dev/sda1 is sda1). Its line
    // in /proc/diskstats is found by the shortest prefix of that name whose first occurrence
    // in the file is followed by a blank, so a partition is measured by its whole disk: sda1 by
    // sda, nvme0n1p1 by nvme0n1. The same rule measures sdaa by sda, nvme0n10 by nvme0n1, every
    // nvme name by sdn where that line stands first, and a mapper name "data" by sda. Names that no
    // prefix fits (overlay, tmpfs, most mapper names) are not registered and fail when measured.
    // Escapes in the mount table (\040) are not decoded. Each operation here that takes a path
    // resolves it, which may block on a dead network mount; only GetDiskIOMonitorInfo does not.

    /// Registers directories: loads the mount table and the RAID map and takes the first sample of
    /// each directory's disk and, of an array, of its members too. Null and empty entries are
    /// skipped; disks that are known already keep their sample. Call again after mounts changed;
    /// paths that were resolved before keep their disk, unless they are mount points now.
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for a null or empty list, or a directory that does
    ///         not exist or whose disk is unknown, or an empty /proc/diskstats;
    ///         COMMON_ERR_LINUX_SYSTEM_CALL_FAIL when the mount table cannot be opened or
    ///         parsed, or /proc/diskstats not read or parsed (a missing /proc/mdstat is no fault).
    ///         On failure entries before the fault stay registered.
    int32_t SetDiskInfo(const char** file_path, uint32_t file_path_num, LogCategory* log_handle);

    /// Lists the registered disks, at most 128. Reads no file.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS for a null record.
    int32_t GetDiskNameInfo(DiskNameInfoResult*& disk_name_info_result, LogCategory* log_handle);

    /// Writes the name of the disk that holds `file_path`, cut to `disk_name_length` - 1
    /// characters, and remembers it for the resolved path. Needs the mount table that SetDiskInfo
    /// loads.
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for a bad argument (buffer untouched), a path that
    ///         does not exist or one on no known mount (name empty).
    int32_t GetDiskNameByFileName(char* disk_name, uint32_t disk_name_length, const char* file_path,
                                  LogCategory* log_handle);

    /// Measures the disk behind one registered directory; an array by its busiest member.
    /// @param time_interval whole seconds since the disk's last measurement with `refresh`
    /// @param refresh       whether the sample becomes the next baseline and raises the peaks
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for a bad argument, a path that does not exist, is
    ///         not registered or whose disk is not in the file; COMMON_ERR_LINUX_SYSTEM_CALL_FAIL
    ///         when the file cannot be read or parsed; COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE for a
    ///         disk without a first sample. On failure the stored result stays. An array always
    ///         succeeds: members that cannot be measured count as 0.
    ///
    /// Counters that fall give one wrong figure, which `refresh` ends: 100 percent, or operations
    /// per second beyond any disk. It stays in the peak until it is cleared.
    int32_t CalcDiskIOMonitorInfo(const char* file_path, uint64_t time_interval, bool refresh,
                                  LogCategory* log_handle);

    /// Measures several directories in one pass; a disk that holds several of them is measured
    /// once. Null and empty entries are skipped. An array is measured once per directory, so with
    /// `refresh` the second directory on one array reads next to nothing.
    /// @return 0, also when single entries could not be measured (their results stay);
    ///         COMMON_ERR_INVALID_ARGUMENTS for an interval of 0, or for a path that does not
    ///         exist, which ends the call.
    int32_t CalcDiskIOMonitorInfo(const std::vector<const char*>& vec_file_path,
                                  uint64_t time_interval, bool refresh, LogCategory* log_handle);

    /// The latest figures of a directory, spelled as it was passed to CalcDiskIOMonitorInfo.
    /// Reads no file.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS for a bad argument or a directory without any.
    int32_t GetDiskIOMonitorInfo(DiskIOInfoResult* disk_io_info_result, const char* file_path,
                                 LogCategory* log_handle);

    /// Sets the peaks in every disk's stored sample to 0. Always 0, logs nothing.
    int32_t ClearDiskIOPhasedcacheValue(LogCategory* log_handle);

    /// Size and used space of the file system that holds a path, asked of the host's GetDiskSize.
    /// May block on a dead network mount.
    /// @return 0; COMMON_ERR_INVALID_ARGUMENTS for a bad argument (record untouched) or a path that
    ///         does not exist; GetDiskSize's status when it fails. The record then holds the path
    ///         and 0, or the total that GetDiskSize left.
    int32_t GetDiskMonitorInfo(DiskInfoResult* disk_info_result, const char* file_path,
                               LogCategory* log_handle);

    // ---- The strict reading, and what goes beyond the cycles: all of it opt-in ----
    //
    // With the strict reading every operation above keeps its arguments, its order of checks and
    // the meaning of its statuses; what is different:
    //
    // Cores: those that come or go fail no pass and touch no peak: the sum is over the cores that
    // the baseline and the sample both hold. Steal is part of the total. A column that steps back
    // (the kernel's idle and iowait do) counts as no time in it, and no core is above 100. An
    // unknown core is COMMON_ERR_INVALID_ARGUMENTS and discovers nothing. The line "cpu", asked for
    // by name, jumps by what a core had counted when that goes or comes: that figure means nothing.
    //
    // Processes: names may hold anything. Time is the clock's, not the machine's ticks, so one pass
    // primes and the second measures. A pid that is another process by its start time is primed
    // anew, and its figures until the next pass are the old one's no longer but
    // COMMON_ERR_INVALID_ARGUMENTS; a thread likewise. A pass within 50 ms of the one before
    // changes nothing: the kernel counts in ticks of 10. No figure is negative. Children that were
    // waited for are not counted: all of their time would come in one pass. A process none of whose
    // threads could be measured has no busiest thread: COMMON_ERR_INVALID_ARGUMENTS. In
    // CalcProcessCPUInfoForTinyCycle the samples' `sampled_at` tells the time; the machine's sample
    // only has to be there.
    //
    // Memory: lines in any order; a missing Buffers, Cached or Shmem line is 0; figures that do not
    // fit each other (more free than there is) are COMMON_ERR_INVALID_ARGUMENTS.
    //
    // Network: measured are the interfaces named with SetNetworkInterfaces, without any all but
    // "lo". A new one, or one whose counters fell, is sampled by the next pass with `refresh` and
    // measured by the one after; one that goes, or whose line cannot be parsed, takes only its own
    // figures with it. A pass that could measure none fails: COMMON_ERR_INVALID_ARGUMENTS when
    // there is none in the file, COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE when all are new. The tiny
    // cycles measure the first interface named, and without any the busiest of each direction; a
    // failed pass empties their result. A process's namespace may hold other interfaces in any
    // order; the first pass over another pid's only takes its samples.
    //
    // Disks: a directory's device is its device number (stat), and where that names no device, as
    // on btrfs, the source of its mount in /proc/self/mountinfo. It is measured by the line of
    // /proc/diskstats with that number, a partition by its whole disk (/sys/dev/block), an array
    // by the busiest disk under it (/proc/mdstat, whatever its level and state), and an NVMe disk
    // of several paths by the busiest of those. SetDiskInfo registers every directory that it can
    // and returns the first failure; one without a block device is registered without one, and
    // asking for its name or its load is COMMON_ERR_NO_BLOCK_DEVICE. Registering again looks anew:
    // a directory that cannot be registered now is no longer measured by its disk of before.
    // GetDiskNameByFileName registers a directory that is not. Measuring reads /proc/diskstats once
    // a call and never touches a directory that is spelled as it was registered, so that a dead
    // mount cannot hold it up. A disk that was gone, or whose counters fell, is
    // COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE until a pass with `refresh` has sampled it. A directory
    // whose latest measurement failed has no figures: GetDiskIOMonitorInfo says so.

    /// Chooses the reading for every operation from now on, and discovers anew: all samples,
    /// results, peaks and registered directories of the other reading are dropped. Call it once, at
    /// start.
    /// @return 0, or the status of the discovery of interfaces or cores that failed; the reading is
    ///         chosen all the same.
    int32_t SetStrictReading(bool strict, LogCategory* log_handle);

    /// Names the interfaces that the strict reading measures, the first one for the tiny cycles
    /// too, and discovers them anew. Null or 0 names none: all but "lo". Null and empty entries are
    /// skipped. The compatible reading remembers the names and does nothing else.
    /// @return 0, or the status of a discovery that failed.
    int32_t SetNetworkInterfaces(const char** nic_name, uint32_t nic_name_num,
                                 LogCategory* log_handle);

    /// Every interface that the latest CalcNetworkMonitorInfo measured, in the order of
    /// /proc/net/dev; none when it failed. Strict reading only. Reads no file.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS (vector emptied) with the compatible reading.
    int32_t GetNetworkInterfaceInfo(std::vector<NetworkInterfaceInfo>& network_interface_infos,
                                    LogCategory* log_handle);

    /// Every core that the latest CalcCPUMonitorInfo measured, in the order of /proc/stat, each
    /// with that pass's figure, no peak; none when it could not read the file. Strict reading only.
    /// Reads no file.
    /// @return 0, or COMMON_ERR_INVALID_ARGUMENTS (vector emptied) with the compatible reading.
    int32_t GetCPUCoreInfo(std::vector<CPUCoreInfo>& cpu_core_infos, LogCategory* log_handle);

private:
    friend struct MonitorPhysicalUtilTestPeer;

    using StoreLine = int32_t (CMonitorPhysicalUtil::*)(const std::string& line,
                                                        LogCategory* log_handle);
    using DiskIOResultMap = std::map<std::string, DiskIOInfoResult>;  // by disk name

    /// The samples that one process cycle measures against.
    struct ProcessCPUBaselines {
        std::map<uint32_t, CPUInfo>& total_cpu_info;
        std::map<uint32_t, ProcessCPUInfo>& process_cpu_info;
    };

    /// What the reading that SetStrictReading chose does in its own way.
    struct Reading;
    static const Reading COMPATIBLE_READING;
    static const Reading STRICT_READING;

    /// What differs between the three walks over an interface table.
    struct NetworkCycle {
        using Calc = int32_t (CMonitorPhysicalUtil::*)(NetworkInfoResult*, NetworkInfo*,
                                                       const char*, uint64_t, bool, LogCategory*);
        using Store = void (*)(NetworkInfoResult& stored, const NetworkInfoResult& measured,
                               const char* nic_name);

        const char* only_nic_name;  ///< the one interface measured; null: all of them
        Calc calc;                  ///< rates of one interface; compatible reading only
        Store store;                ///< how they enter `network_info_result`
        NetworkInfoResult& network_info_result;

        // Strict reading
        std::map<std::string, NetworkInfo>& old_network_info;
        std::vector<std::string>& nic_names;  ///< interfaces of the table as it is now
        std::vector<NetworkInterfaceInfo>* network_interface_infos;  ///< null: a tiny cycle
    };

    /// A directory that is being registered with the strict reading.
    struct RegisteredPath {
        const char* file_path;    ///< as it was passed
        std::string real_path;    ///< resolved
        uint64_t device_number;   ///< 0: it has no block device
        std::string file_system;  ///< the mount's type, where stat told no device
    };

    /// What a directory registered with the strict reading is measured by.
    struct DiskTarget {
        std::string disk_name;           ///< its device; empty: it has none
        std::string measured_name;       ///< the disk or array that it lies on
        std::string file_system;         ///< the mount's type, for a directory without a device
        std::vector<std::string> lines;  ///< names in /proc/diskstats: one, or an array's members
    };

    /// A line of /proc/diskstats in the latest call that measured it.
    struct DiskLineFigures {
        uint64_t pass = 0;    ///< number of that call
        size_t position = 0;  ///< of the line in its text
        int32_t status = 0;
        uint32_t disk_io_rate = 0;
        uint32_t disk_iops = 0;
    };

    /// The text of /proc/diskstats in one call.
    struct DiskTable {
        char* text;
        size_t length;
    };

    CMonitorPhysicalUtil();
    void InitCMonitorPhysicalUtil();

    // Proc file helpers

    /// What a buffer holds before a file is read into it.
    enum class Buffer {
        Cleared,  ///< zeros, which end the text; what is behind the text stays as it was
        Unset,    ///< anything: one NUL is written behind the text
    };
    static int32_t ReadFromFile(char* file_content, uint32_t file_content_length,
                                const char* file_path, LogCategory* log_handle,
                                Buffer buffer = Buffer::Cleared);
    static int32_t GetRealFilePath(char* real_file_path, uint32_t real_file_path_length,
                                   const char* file_path, LogCategory* log_handle);
    /// Reads a kernel file line by line into `store_line`, for a discovery that collects `names`.
    /// Stops at the first status that is not 0, at the end of the file, when the stream fails, or
    /// with `limit_text` (one %zd: the count) when `names` holds `max_names`, so that a stream
    /// without an end cannot hold it.
    int32_t DiscoverLines(const char* file_path, const std::vector<std::string>& names,
                          size_t max_names, const char* limit_text, StoreLine store_line,
                          LogCategory* log_handle);
    static void CloseFd(FILE* fd);
    static void ClosePipeFd(FILE* fd);

    // Readings
    std::vector<char>* WholeText();
    void DropInterfaces();
    void DropAll();

    // CPU
    int32_t InitDefaultCPUInfo(LogCategory* log_handle);
    int32_t StoreFirstCPUInfo(const std::string& line, LogCategory* log_handle);
    int32_t GetRawCPUInfo(char* raw_cpu_info, uint32_t raw_cpu_info_length,
                          LogCategory* log_handle);
    int32_t GetCPUInfo(CPUInfo* now_cpu_info, const char* cpu_core_name, LogCategory* log_handle);
    int32_t CalcCPUInfo(uint32_t& cpu_utilization, const char* cpu_core_name,
                        std::map<std::string, CPUInfo>& old_cpu_infos, CPUInfo* now_cpu_info,
                        bool refresh, bool refresh_max_value, LogCategory* log_handle);
    int32_t CalcKnownCores(uint32_t& machine_figure, bool keep_peak,
                           std::map<std::string, CPUInfo>& old_cpu_infos, bool refresh,
                           LogCategory* log_handle);
    int32_t CalcListedCores(uint32_t& machine_figure, bool keep_peak,
                            std::map<std::string, CPUInfo>& old_cpu_infos, bool refresh,
                            LogCategory* log_handle);
    int32_t SampleListedCores(std::vector<CPUCoreInfo>& measured,
                              std::map<std::string, CPUInfo>& old_cpu_infos, bool refresh,
                              LogCategory* log_handle);
    int32_t DiscoverListedCores(LogCategory* log_handle);
    int32_t ReinitCPUInfo(LogCategory* log_handle);

    // Process CPU
    int32_t GetProcessCPUInfo(ProcessCPUInfo* now_process_cpu_info, uint32_t pid,
                              bool get_thread_cpu, LogCategory* log_handle);
    void GetThreadCPUInfo(ProcessCPUInfo* now_process_cpu_info, uint32_t pid, char* buffer,
                          uint32_t buffer_length, LogCategory* log_handle);
    int32_t CalcProcessCPUInfo(int32_t& process_cpu_utilization,
                               int32_t& max_thread_cpu_utilization, CPUInfo* now_cpu_info,
                               ProcessCPUInfo* now_process_cpu_info, uint32_t pid, bool refresh,
                               bool cal_max_thread_cpu, LogCategory* log_handle);
    int32_t CalcProcessCPUSinceBaselines(ProcessCPUFigures& figures,
                                         const ProcessCPUBaselines& baselines,
                                         CPUInfo* now_cpu_info,
                                         ProcessCPUInfo* now_process_cpu_info, uint32_t pid,
                                         bool cal_max_thread_cpu, LogCategory* log_handle);
    int32_t CalcProcessCPUPeaks(ProcessCPUFigures& figures, CPUInfo* now_cpu_info,
                                ProcessCPUInfo* now_process_cpu_info, uint32_t pid, bool refresh,
                                bool cal_max_thread_cpu, LogCategory* log_handle);
    void StoreProcessBaselines(const CPUInfo& now_cpu_info, ProcessCPUInfo&& now_process_cpu_info,
                               uint32_t pid);
    ProcessCPUFigures CalcProcessByMachine(const ProcessCPUBaselines& baselines,
                                           CPUInfo& now_cpu_info,
                                           ProcessCPUInfo& now_process_cpu_info, uint32_t pid,
                                           bool cal_max_thread_cpu);
    ProcessCPUFigures CalcProcessByClock(const ProcessCPUBaselines& baselines,
                                         CPUInfo& now_cpu_info,
                                         ProcessCPUInfo& now_process_cpu_info, uint32_t pid,
                                         bool cal_max_thread_cpu);
    int32_t GetProcessAndMachineCPUInfo(ProcessCPUInfo* now_process_cpu_info, CPUInfo* now_cpu_info,
                                        uint32_t pid, bool get_thread_cpu, LogCategory* log_handle);

    // Memory
    int32_t GetMemoryInfo(MemoryInfo* memory_info, LogCategory* log_handle);
    int32_t GetProcessMemoryInfo(ProcessMemoryInfo* process_memory_info, uint32_t pid,
                                 LogCategory* log_handle);

    // Network
    int32_t InitDefaultNetWorkInfo(LogCategory* log_handle);
    int32_t StoreFirstNetworkInfo(const std::string& line, LogCategory* log_handle);
    int32_t GetRawNetworkInfo(char* raw_network_info, uint32_t raw_network_info_length,
                              LogCategory* log_handle);
    int32_t GetNetworkInfo(NetworkInfo* network_info, const char* nic_name,
                           LogCategory* log_handle);
    int32_t CalcNetworkInfo(NetworkInfoResult* network_info_result, NetworkInfo* now_network_info,
                            const char* nic_name, uint64_t time_interval, bool refresh,
                            LogCategory* log_handle);
    int32_t CalcKnownInterfaces(char* raw_network_info, const NetworkCycle& cycle,
                                uint64_t time_interval, bool refresh, LogCategory* log_handle);
    int32_t CalcListedInterfaces(char* raw_network_info, const NetworkCycle& cycle,
                                 uint64_t time_interval, bool refresh, LogCategory* log_handle);
    int32_t DiscoverListedInterfaces(LogCategory* log_handle);
    bool IsNicWanted(const char* nic_name, bool only_first) const;
    /// Takes the next line of a wanted interface out of the text; false when there is none.
    bool TakeInterface(char*& text, bool only_first, NetworkInfo& network_info,
                       LogCategory* log_handle) const;
    /// Empties the result of a tiny cycle where a failed pass must not leave the one before.
    void DropLatest(const NetworkCycle& cycle) const;
    int32_t CalcHostNetworkInfo(const NetworkCycle& cycle, uint64_t time_interval, bool refresh,
                                LogCategory* log_handle);

    // Disks
    int32_t SetDefaultDirMapToDisk(LogCategory* log_handle);
    int32_t SetDefaultRaidMap(LogCategory* log_handle);
    void SetDiskListOfRaid(std::vector<std::string>& arry, LogCategory* log_handle);
    void SetRaidIOStatInfo(const char* proc_diskstats, const char* disk_name,
                           LogCategory* log_handle);
    int32_t GetRawDiskIOInfo(char* raw_disk_io_info, uint32_t raw_disk_io_info_length,
                             LogCategory* log_handle);
    int32_t SetDiskIOStatInfo(const char* proc_diskstats, const char* disk_name,
                              LogCategory* log_handle);
    int32_t GetDiskIOInfoImpl(DiskIOInfo* disk_io_info, const char* disk_name,
                              LogCategory* log_handle);
    int32_t GetDiskIOInfo(DiskIOInfo* disk_io_info, const char* file_path, LogCategory* log_handle);
    int32_t CalcDiskIOInfo(uint32_t& disk_io_rate, uint32_t& disk_iops,
                           DiskIOInfo* now_disk_io_info, uint64_t time_interval, bool refresh,
                           LogCategory* log_handle);
    int32_t CalcRaidDiskIOInfo(const char* file_path, const char* real_file_path,
                               uint64_t time_interval, bool refresh, LogCategory* log_handle);
    int32_t CalcDiskIOOfRealPath(const char* file_path, const char* real_file_path,
                                 uint64_t time_interval, bool refresh,
                                 DiskIOResultMap* measured_disks, LogCategory* log_handle);
    int32_t SetDisksByName(const char** file_path, uint32_t file_path_num, LogCategory* log_handle);
    int32_t GetDiskNameByMount(char* disk_name, uint32_t disk_name_length, const char* file_path,
                               LogCategory* log_handle);
    int32_t CalcDiskByName(const char* file_path, uint64_t time_interval, bool refresh,
                           LogCategory* log_handle);
    int32_t CalcDisksByName(const std::vector<const char*>& file_paths, uint64_t time_interval,
                            bool refresh, LogCategory* log_handle);

    // Disks by device number
    int32_t SetDisksByNumber(const char** file_path, uint32_t file_path_num,
                             LogCategory* log_handle);
    int32_t SetMembersOfArrays(LogCategory* log_handle);
    int32_t ReadMounts(std::vector<MountEntry>& mounts, LogCategory* log_handle);
    /// Fills in what the path tells. `mounts` are read when the first directory needs them.
    int32_t FindDirectory(RegisteredPath& directory, std::vector<MountEntry>& mounts,
                          LogCategory* log_handle);
    void ForgetDirectory(const char* file_path);
    int32_t SetDiskTarget(const RegisteredPath& directory, int32_t arrays_status,
                          char* proc_diskstats, LogCategory* log_handle);
    std::vector<std::string> FindLines(char* proc_diskstats, std::string& measured_name,
                                       const std::string& disk_name) const;
    int32_t SetFirstSamples(const DiskTarget& target, char* proc_diskstats,
                            LogCategory* log_handle);
    void ListDisk(const char* disk_name, LogCategory* log_handle);
    const DiskTarget* FindKnownTarget(const char* file_path);
    int32_t FindDiskTarget(const DiskTarget*& target, const char* file_path,
                           LogCategory* log_handle);
    int32_t GetDiskNameOfTarget(char* disk_name, uint32_t disk_name_length, const char* file_path,
                                LogCategory* log_handle);
    int32_t ReadDiskTable(KernelText& text, DiskTable& table, LogCategory* log_handle);
    int32_t CalcDiskByNumber(const char* file_path, uint64_t time_interval, bool refresh,
                             LogCategory* log_handle);
    int32_t CalcDisksByNumber(const std::vector<const char*>& file_paths, uint64_t time_interval,
                              bool refresh, LogCategory* log_handle);
    int32_t CalcDiskTarget(const DiskTable& table, const char* file_path, uint64_t time_interval,
                           bool refresh, LogCategory* log_handle);
    const DiskLineFigures& CalcDiskLine(const DiskTable& table, const std::string& line_name,
                                        uint64_t time_interval, bool refresh,
                                        LogCategory* log_handle);
    int32_t MeasureDiskLine(DiskLineFigures& figures, const DiskTable& table,
                            const std::string& line_name, uint64_t time_interval, bool refresh,
                            LogCategory* log_handle);

    // The declaration order is the order of construction.
    std::vector<std::string> m_network_nic_name;
    std::map<std::string, NetworkInfo> m_old_network_info;
    NetworkInfoResult m_network_info_result;
    std::vector<std::string> m_cpu_core_name;  // file order, without the machine's line "cpu"
    std::map<std::string, CPUInfo> m_old_cpu_info;
    std::map<uint32_t, CPUInfo> m_old_total_cpu_info;
    std::map<uint32_t, CPUInfo> m_old_total_cpu_info_for_tiny_cycle;
    std::map<uint32_t, int> m_process_cpu_result_info;
    std::map<uint32_t, int> m_process_max_thread_cpu_result_info;
    std::map<uint32_t, int> m_process_cpu_result_info_for_tiny_cycle;
    std::map<uint32_t, int> m_process_max_thread_cpu_result_info_for_tiny_cycle;
    uint32_t m_all_max_cpu_utilization = 0;
    uint32_t m_all_tiny_cycle_cpu_utilization = 0;
    std::map<std::string, CPUInfo> m_old_tiny_cycle_cpu_info;
    std::map<std::string, NetworkInfo> m_tiny_old_network_info;
    NetworkInfoResult m_network_info_result_curr;
    std::map<std::string, NetworkInfo> m_proc_old_network_info;
    NetworkInfoResult m_proc_network_info_result_curr;
    std::map<uint32_t, ProcessCPUInfo> m_old_process_cpu_info;
    std::map<uint32_t, ProcessCPUInfo> m_old_process_cpu_info_for_tiny_cycle;
    int32_t m_total_disk_num = 0;
    char m_disk_name[MONITOR_MAX_DISK_NUM][MONITOR_NAME_LENGTH] = {};
    std::map<std::string, DiskIOInfo> m_old_disk_io_info;
    std::map<std::string, DiskIOInfoResult, std::less<>>
        m_disk_io_result_info;                             // by path as passed
    std::map<std::string, std::string> m_dir_to_disk_map;  // mount points and paths once resolved
    std::map<std::string, std::vector<std::string>> m_raid_to_disk_map;
    const Reading* m_reading = &COMPATIBLE_READING;
    std::vector<CPUCoreInfo> m_cpu_core_info;  // strict reading: measured by the latest pass
    std::vector<CPUCoreInfo> m_tiny_cycle_cpu_core_info;
    std::vector<char> m_file_text;                     // strict reading: files that are read whole
    std::vector<std::string> m_wanted_nic_name;        // named by the host; empty: all but "lo"
    std::vector<std::string> m_proc_network_nic_name;  // strict reading, of m_proc_network_pid
    uint32_t m_proc_network_pid = 0;
    std::vector<NetworkInterfaceInfo> m_network_interface_info;
    std::map<std::string, std::string, std::less<>> m_disk_real_path;  // by the path as passed
    std::map<std::string, DiskTarget, std::less<>> m_disk_target;      // by the resolved path
    std::map<std::string, DiskLineFigures> m_disk_line_figures;        // by name of the line
    uint64_t m_disk_pass = 0;
};

}  // namespace CorvaneCommon
