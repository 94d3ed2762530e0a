// CPU of the machine and its cores (/proc/stat).
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "monitor_physical_util.h"
#include "monitor_physical_util_internal.h"
#include "monitor_physical_util_log.h"
#include "monitor_physical_util_reading.h"
#include "monitor_physical_util_text.h"

namespace CorvaneCommon {

namespace {

constexpr const char* STAT_PATH = "/proc/stat";
constexpr const char* CPU_WORD = "cpu";    // in every line of a core; by itself: the whole machine
constexpr size_t MAX_CPU_CORE_NUM = 4096;  // bounds discovery should the stream never end

/// Whether a core stands in the rest of the file. The counts of interrupts are kilobytes of digits
/// on a large machine: strchr gets over them several times as fast as strstr.
bool HoldsCore(const char* text) {
    const size_t length = strlen(CPU_WORD);
    for (; (text = strchr(text, *CPU_WORD)) != nullptr; ++text) {
        if (strncmp(text, CPU_WORD, length) == 0) {
            return true;
        }
    }
    return false;
}

uint64_t BusyTicks(const CPUInfo& cpu) {
    return cpu.user + cpu.nice + cpu.system + cpu.irq + cpu.softirq;
}

}  // namespace

uint32_t BusyPercent(const CPUInfo& old_cpu, const CPUInfo& now_cpu) {
    const uint64_t elapsed = TotalTicks(now_cpu) - TotalTicks(old_cpu);
    if (elapsed == 0) {
        return 0;
    }
    const uint64_t busy = (BusyTicks(now_cpu) - BusyTicks(old_cpu)) * PERCENT;
    return static_cast<uint32_t>(CeilQuotient<int64_t>(busy, elapsed));
}

CPUInfo& CPUInfo::operator=(const CPUInfo& other) {
    if (this == &other) {
        return *this;
    }
    CopyName(cpu_core_name, other.cpu_core_name);
    user = other.user;
    nice = other.nice;
    system = other.system;
    idle = other.idle;
    iowait = other.iowait;
    irq = other.irq;
    softirq = other.softirq;
    max_cpu_utilization = other.max_cpu_utilization;
    steal = other.steal;
    return *this;
}

uint64_t TotalTicks(const CPUInfo& cpu_info) {
    return BusyTicks(cpu_info) + cpu_info.idle + cpu_info.iowait;
}

bool ParseCPULine(const char* line, CPUInfo& cpu_info) {
    return ScanName(line, cpu_info.cpu_core_name) && ScanNumber(line, cpu_info.user) &&
           ScanNumber(line, cpu_info.nice) && ScanNumber(line, cpu_info.system) &&
           ScanNumber(line, cpu_info.idle) && ScanNumber(line, cpu_info.iowait) &&
           ScanNumber(line, cpu_info.irq) && ScanNumber(line, cpu_info.softirq);
}

int32_t CMonitorPhysicalUtil::InitDefaultCPUInfo(LogCategory* log_handle) {
    m_all_max_cpu_utilization = 0;
    m_all_tiny_cycle_cpu_utilization = 0;
    // The stored samples stay: those of cores found now are overwritten, the others do no harm.
    m_cpu_core_name.clear();
    const uint32_t core_num = GetCPUCoreNum();
    if (core_num > m_cpu_core_name.capacity()) {
        m_cpu_core_name.reserve(core_num);
    }
    return DiscoverLines(STAT_PATH, m_cpu_core_name, MAX_CPU_CORE_NUM,
                         "maybe deadloop, m_cpu_core_name.size=%zd",
                         &CMonitorPhysicalUtil::StoreFirstCPUInfo, log_handle);
}

int32_t CMonitorPhysicalUtil::StoreFirstCPUInfo(const std::string& line, LogCategory* log_handle) {
    if (line.find(CPU_WORD) == std::string::npos) {
        return 0;
    }
    CPUInfo cpu_info;
    if (!ParseCPULine(line.c_str(), cpu_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, buf: %s", line.c_str());
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    m_old_cpu_info[cpu_info.cpu_core_name] = cpu_info;
    m_old_tiny_cycle_cpu_info[cpu_info.cpu_core_name] = cpu_info;
    if (strcmp(cpu_info.cpu_core_name, CPU_WORD) != 0) {
        m_cpu_core_name.emplace_back(cpu_info.cpu_core_name);
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::GetRawCPUInfo(char* raw_cpu_info, uint32_t raw_cpu_info_length,
                                            LogCategory* log_handle) {
    if (raw_cpu_info == nullptr || raw_cpu_info_length == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "raw_cpu_info is NULL or raw_cpu_info_length is 0, raw_cpu_info: %p, "
                    "raw_cpu_info_length: %u.",
                    static_cast<const void*>(raw_cpu_info), raw_cpu_info_length);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    raw_cpu_info[0] = '\0';
    const int32_t ret =
        ReadFromFile(raw_cpu_info, raw_cpu_info_length, STAT_PATH, log_handle, Buffer::Unset);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "ReadFromFile failed, file: %s.", STAT_PATH);
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::GetCPUInfo(CPUInfo* now_cpu_info, const char* cpu_core_name,
                                         LogCategory* log_handle) {
    if (IsEmpty(cpu_core_name) || now_cpu_info == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "cpu_core_name is NULL or cpu_core_name's length is 0 or now_cpu_info is NULL, "
                    "cpu_core_name: %p, now_cpu_info: %p.",
                    static_cast<const void*>(cpu_core_name),
                    static_cast<const void*>(now_cpu_info));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* raw_cpu_info, uint32_t length) {
        return GetRawCPUInfo(raw_cpu_info, length, log_handle);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawCPUInfo failed, ret: %d.", ret);
        return ret;
    }
    char* const buffer = text.Data();
    char* const line = m_reading->find_cpu_line(buffer, cpu_core_name);
    if (line == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "%s Can not find %s, maybe cpu changed, reinit cpu info.", buffer,
                    cpu_core_name);
        if (m_reading->rediscovers) {
            InitDefaultCPUInfo(log_handle);
        }
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (CutLine(line) == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "%s Can not find \\n after %s.", buffer,
                    cpu_core_name);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (!m_reading->parse_cpu_line(line, *now_cpu_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, file: %s, buf: %s.", STAT_PATH,
                    line);
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    MONITOR_LOG(log_handle, LOG_PRIORITY_TRACE,
                "sscanf succeed, file:%s, user:%lu,nice:%lu,system:%lu,idle:%lu,iowait:%lu,"
                "irq:%lu,softirq:%lu",
                STAT_PATH, now_cpu_info->user, now_cpu_info->nice, now_cpu_info->system,
                now_cpu_info->idle, now_cpu_info->iowait, now_cpu_info->irq, now_cpu_info->softirq);
    now_cpu_info->max_cpu_utilization = 0;
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcCPUInfo(uint32_t& cpu_utilization, const char* cpu_core_name,
                                          std::map<std::string, CPUInfo>& old_cpu_infos,
                                          CPUInfo* now_cpu_info, bool refresh,
                                          bool refresh_max_value, LogCategory* log_handle) {
    cpu_utilization = 0;
    if (now_cpu_info == nullptr || IsEmpty(cpu_core_name)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "now_cpu_info is NULL or cpu_core_name is NULL or cpu_core_name's length is 0, "
                    "cpu_core_name: %p, now_cpu_info: %p.",
                    static_cast<const void*>(cpu_core_name),
                    static_cast<const void*>(now_cpu_info));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    const auto found = old_cpu_infos.find(cpu_core_name);
    if (found == old_cpu_infos.end()) {
        // Only discovery creates entries; storing this sample would hide that the name is unknown.
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "can not get old cpu info, cpu_core_name: %s.",
                    cpu_core_name);
        return COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE;
    }
    CPUInfo& old_cpu_info = found->second;
    cpu_utilization = m_reading->cpu_percent(old_cpu_info, *now_cpu_info);
    if (refresh_max_value) {
        old_cpu_info.max_cpu_utilization =
            std::max<uint64_t>(old_cpu_info.max_cpu_utilization, cpu_utilization);
        cpu_utilization = static_cast<uint32_t>(old_cpu_info.max_cpu_utilization);
    }
    if (!refresh) {
        return 0;
    }
    now_cpu_info->max_cpu_utilization = cpu_utilization;
    old_cpu_info = *now_cpu_info;
    return 0;
}

int32_t CMonitorPhysicalUtil::ReinitCPUInfo(LogCategory* log_handle) {
    MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "%s", "maybe cpu changed, reinit cpu info.");
    InitDefaultCPUInfo(log_handle);
    return COMMON_ERR_INVALID_ARGUMENTS;
}

int32_t CMonitorPhysicalUtil::CalcKnownCores(uint32_t& machine_figure, bool keep_peak,
                                             std::map<std::string, CPUInfo>& old_cpu_infos,
                                             bool refresh, LogCategory* log_handle) {
    char buffer[FILE_BUFFER_LENGTH];
    CPUInfo now_cpu_info;
    int32_t ret = GetRawCPUInfo(buffer, sizeof(buffer), log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawCPUInfo failed, ret: %d.", ret);
        return ret;
    }
    char* position = buffer;
    if (m_cpu_core_name.empty()) {
        return HoldsCore(position) ? ReinitCPUInfo(log_handle) : 0;
    }
    uint32_t sum = 0;
    for (const std::string& core_name : m_cpu_core_name) {
        char* const line = strstr(position, core_name.c_str());
        if (line == nullptr) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "%s Can not find %s, maybe cpu changed, reinit cpu info.", LOG_NULL_TEXT,
                        core_name.c_str());
            InitDefaultCPUInfo(log_handle);
            return COMMON_ERR_INVALID_ARGUMENTS;
        }
        position = CutLine(line);
        if (position == nullptr) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "%s Can not find \\n after %s.", line,
                        core_name.c_str());
            return COMMON_ERR_INVALID_ARGUMENTS;
        }
        const char* const blank = strchr(line, ' ');
        if (blank == nullptr || blank - line >= static_cast<ptrdiff_t>(MONITOR_NAME_LENGTH)) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "the size of now_cpu_info.cpu_core_name is not enough, buf: %s.", line);
            return COMMON_ERR_INVALID_ARGUMENTS;
        }
        if (!ParseCPULine(line, now_cpu_info)) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, file: %s, buf: %s.",
                        STAT_PATH, line);
            return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
        }
        uint32_t cpu_utilization = 0;
        ret = CalcCPUInfo(cpu_utilization, core_name.c_str(), old_cpu_infos, &now_cpu_info, refresh,
                          false, log_handle);
        if (ret != 0) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "CalcCPUInfo failed, ret: %d, cpu_core_name: %s.", ret, core_name.c_str());
            return ret;
        }
        sum += cpu_utilization;
    }
    if (HoldsCore(position)) {
        return ReinitCPUInfo(log_handle);
    }
    machine_figure = keep_peak ? std::max(machine_figure, sum) : sum;
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcCPUMonitorInfo(bool refresh, LogCategory* log_handle) {
    return (this->*m_reading->calc_cores)(m_all_max_cpu_utilization, true, m_old_cpu_info, refresh,
                                          log_handle);
}

int32_t CMonitorPhysicalUtil::CalcCPUMonitorInfoForTinyCycle(bool refresh,
                                                             LogCategory* log_handle) {
    return (this->*m_reading->calc_cores)(m_all_tiny_cycle_cpu_utilization, false,
                                          m_old_tiny_cycle_cpu_info, refresh, log_handle);
}

int32_t CMonitorPhysicalUtil::GetCPUMonitorInfo(CPUInfoResult* cpu_info_result,
                                                LogCategory* log_handle) {
    if (cpu_info_result == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "cpu_info_result is NULL.");
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    cpu_info_result->cpu_core_num = static_cast<uint32_t>(m_cpu_core_name.size());
    cpu_info_result->cpu_utilization = m_all_max_cpu_utilization;
    return 0;
}

int32_t CMonitorPhysicalUtil::GetCPUMonitorInfoForTinyCycle(CPUInfoResult* cpu_info_result,
                                                            LogCategory* log_handle) {
    if (cpu_info_result == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "cpu_info_result is NULL.");
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    cpu_info_result->cpu_core_num = static_cast<uint32_t>(m_cpu_core_name.size());
    cpu_info_result->cpu_utilization = m_all_tiny_cycle_cpu_utilization;
    return 0;
}

int32_t CMonitorPhysicalUtil::GetCPUMonitorInfo(CPUInfoResult* cpu_info_result,
                                                const char* cpu_core_name, bool refresh,
                                                LogCategory* log_handle) {
    if (IsEmpty(cpu_core_name) || cpu_info_result == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "cpu_core_name is NULL or cpu_core_name's length is 0 or cpu_info_result is "
                    "NULL, cpu_core_name: %p, cpu_info_result: %p.",
                    static_cast<const void*>(cpu_core_name),
                    static_cast<const void*>(cpu_info_result));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    cpu_info_result->cpu_core_num = static_cast<uint32_t>(m_cpu_core_name.size());
    cpu_info_result->cpu_utilization = 0;
    CPUInfo now_cpu_info;
    int32_t ret = GetCPUInfo(&now_cpu_info, cpu_core_name, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "GetCPUInfo failed, ret: %d, cpu_core_name: %s.", ret, cpu_core_name);
        return ret;
    }
    ret = CalcCPUInfo(cpu_info_result->cpu_utilization, cpu_core_name, m_old_cpu_info,
                      &now_cpu_info, refresh, true, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "CalcCPUInfo failed, ret: %d, cpu_core_name: %s.", ret, cpu_core_name);
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::ClearCPUPhasedCacheValue(LogCategory* /*log_handle*/) {
    for (auto& [cpu_core_name, cpu_info] : m_old_cpu_info) {
        cpu_info.max_cpu_utilization = 0;
    }
    m_all_max_cpu_utilization = 0;
    return 0;
}

int32_t CMonitorPhysicalUtil::ClearCPUPhasedCacheValueForTinyCycle(LogCategory* /*log_handle*/) {
    m_all_tiny_cycle_cpu_utilization = 0;
    return 0;
}

}  // namespace CorvaneCommon
