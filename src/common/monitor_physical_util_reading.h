// What the two readings of kernel files do differently. Internal: not installed.
//
// An operation is the same for both; where they differ it asks the instance's table, which
// SetStrictReading() chooses. The tables stand in monitor_physical_util_reading.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "monitor_physical_util.h"
#include "monitor_physical_util_text.h"

namespace CorvaneCommon {

/// The text of a kernel file: in a buffer on the stack, cut to it; or, read whole, in the
/// instance's, which grows until the longest file fits and stays so.
class KernelText {
public:
    /// @param whole the instance's buffer; null: cut to the one on the stack
    // cppcheck-suppress uninitMemberVar // filled before it is read
    explicit KernelText(std::vector<char>* whole) : m_whole(whole) {}
    KernelText(const KernelText&) = delete;
    KernelText& operator=(const KernelText&) = delete;
    ~KernelText() = default;

    char* Data() { return m_whole == nullptr ? m_fixed : m_whole->data(); }
    uint32_t Size() const {
        return m_whole == nullptr ? sizeof(m_fixed) : static_cast<uint32_t>(m_whole->size());
    }

    /// Calls `read` with the buffer and its size until the text fits.
    /// @return what `read` returned last: 0, or the status that ended it
    template <typename Read>
    int32_t Fill(Read read) {
        for (;;) {
            Data()[Size() - 2] = '\0';  // only a text that fills the buffer overwrites it
            const int32_t ret = read(Data(), Size());
            if (ret != 0 || m_whole == nullptr || Data()[Size() - 2] == '\0' ||
                m_whole->size() >= MAX_LENGTH) {
                return ret;
            }
            m_whole->resize(m_whole->size() * 2);
        }
    }

private:
    static constexpr size_t MAX_LENGTH = size_t{64} << 20U;  // of a file that never ends

    char m_fixed[FILE_BUFFER_LENGTH];  // not cleared: one NUL ends the text
    std::vector<char>* m_whole;
};

/// A key of /proc/meminfo or /proc/PID/status, where its number goes, and the texts of its
/// failures. Each takes the buffer.
struct MemoryKey {
    const char* name;
    uint64_t& value;
    const char* not_found_text;
    const char* no_newline_text;
    bool optional = false;  // where memory is checked: 0 when its line is missing
};

/// What two samples of a process say. Percent of one core.
struct ProcessCPUFigures {
    bool primed = false;    // whether there were samples to measure against
    bool too_soon = false;  // for the kernel's ticks: samples and earlier figures stay
    bool process_measured = true;
    bool thread_measured = true;
    int32_t process = 0;
    int32_t thread = 0;
};

struct CMonitorPhysicalUtil::Reading {
    using Self = CMonitorPhysicalUtil;
    using Samples = std::map<std::string, CPUInfo>;

    bool whole_files;       // files longer than the buffer on the stack are read whole
    bool rediscovers;       // a core or interface that is missing makes them be discovered anew
    bool clock_tells_time;  // of processes; else the machine's line of /proc/stat

    int32_t (Self::*discover_cores)(LogCategory*);
    int32_t (Self::*calc_cores)(uint32_t& machine_figure, bool keep_peak, Samples&, bool refresh,
                                LogCategory*);
    char* (*find_cpu_line)(char* text, const char* name);
    bool (*parse_cpu_line)(const char* line, CPUInfo&);
    uint32_t (*cpu_percent)(const CPUInfo& old_cpu, const CPUInfo& now_cpu);

    int64_t (*microseconds)();
    bool (*parse_process)(const char* text, ProcessCPUInfo&);
    bool (*parse_thread)(const char* text, ThreadCPUInfo&);
    ProcessCPUFigures (Self::*calc_process)(const ProcessCPUBaselines&, CPUInfo& now_cpu_info,
                                            ProcessCPUInfo& now_process_cpu_info, uint32_t pid,
                                            bool cal_max_thread_cpu);

    char* (*find_key)(char* text, const char* key);
    bool keys_in_order;      // one is never searched before the one that was read last
    bool memory_is_checked;  // a missing optional line is 0, more in use than there is a failure

    int32_t (Self::*discover_interfaces)(LogCategory*);
    int32_t (Self::*calc_interfaces)(char* text, const NetworkCycle&, uint64_t time_interval,
                                     bool refresh, LogCategory*);
    char* (*find_interface)(char* text, const char* nic_name);

    int32_t (Self::*set_disks)(const char** file_path, uint32_t file_path_num, LogCategory*);
    int32_t (Self::*get_disk_name)(char* disk_name, uint32_t disk_name_length,
                                   const char* file_path, LogCategory*);
    int32_t (Self::*calc_disk)(const char* file_path, uint64_t time_interval, bool refresh,
                               LogCategory*);
    int32_t (Self::*calc_disks)(const std::vector<const char*>& file_paths, uint64_t time_interval,
                                bool refresh, LogCategory*);
};

}  // namespace CorvaneCommon
