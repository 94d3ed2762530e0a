// CPU of the machine and its cores with the strict reading: cores as /proc/stat lists them.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "monitor_physical_util.h"
#include "monitor_physical_util_internal.h"
#include "monitor_physical_util_log.h"
#include "monitor_physical_util_reading.h"
#include "monitor_physical_util_text.h"

namespace CorvaneCommon {

namespace {

constexpr const char* STAT_PATH = "/proc/stat";
constexpr const char* MACHINE_LINE = "cpu";

bool IsMachineOrCore(const char* line) {
    const size_t length = strlen(MACHINE_LINE);
    return strncmp(line, MACHINE_LINE, length) == 0 &&
           (line[length] == ' ' || IsDigit(line[length]));
}

}  // namespace

bool ParseCoreLine(const char* line, CPUInfo& cpu_info) {
    cpu_info.iowait = cpu_info.irq = cpu_info.softirq = cpu_info.steal = 0;
    const bool complete = ScanName(line, cpu_info.cpu_core_name) &&
                          ScanNumber(line, cpu_info.user) && ScanNumber(line, cpu_info.nice) &&
                          ScanNumber(line, cpu_info.system) && ScanNumber(line, cpu_info.idle);
    for (uint64_t* const column :
         {&cpu_info.iowait, &cpu_info.irq, &cpu_info.softirq, &cpu_info.steal}) {
        if (!ScanNumber(line, *column)) {
            break;
        }
    }
    return complete;
}

uint32_t BoundedBusyPercent(const CPUInfo& old_cpu, const CPUInfo& now_cpu) {
    const auto rise = [&](uint64_t CPUInfo::*column) {
        return static_cast<double>(Rise(old_cpu.*column, now_cpu.*column));
    };
    const double busy = rise(&CPUInfo::user) + rise(&CPUInfo::nice) + rise(&CPUInfo::system) +
                        rise(&CPUInfo::irq) + rise(&CPUInfo::softirq);
    const double total =
        busy + rise(&CPUInfo::idle) + rise(&CPUInfo::iowait) + rise(&CPUInfo::steal);
    if (total == 0) {
        return 0;
    }
    // Sums beyond 2^53 are rounded: the quotient may pass 100 by the last bit.
    const double percent = std::ceil(busy * PERCENT / total);
    return static_cast<uint32_t>(std::min<double>(percent, PERCENT));
}

int32_t CMonitorPhysicalUtil::SampleListedCores(std::vector<CPUCoreInfo>& measured,
                                                std::map<std::string, CPUInfo>& old_cpu_infos,
                                                bool refresh, LogCategory* log_handle) {
    measured.clear();
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* raw_cpu_info, uint32_t length) {
        return GetRawCPUInfo(raw_cpu_info, length, log_handle);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawCPUInfo failed, ret: %d.", ret);
        return ret;
    }
    CPUInfo now_cpu_info;
    size_t lines = 0;
    size_t cores = 0;
    for (char *line = text.Data(), *next = nullptr; line != nullptr; line = next) {
        next = CutLine(line);
        if (!IsMachineOrCore(line)) {
            if (cores > 0) {
                break;  // the kernel lists them together; what follows is long
            }
            continue;
        }
        if (next == nullptr || !ParseCoreLine(line, now_cpu_info)) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, file: %s, buf: %s.",
                        STAT_PATH, line);
            measured.clear();
            return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
        }
        ++lines;
        if (strcmp(now_cpu_info.cpu_core_name, MACHINE_LINE) == 0) {
            old_cpu_infos.try_emplace(MACHINE_LINE, now_cpu_info);
            continue;  // its baseline moves only when it is asked for
        }
        const std::string& name = SetName(m_cpu_core_name, cores++, now_cpu_info.cpu_core_name);
        const auto old_cpu_info = old_cpu_infos.find(name);
        if (old_cpu_info == old_cpu_infos.end()) {
            old_cpu_infos.emplace(name, now_cpu_info);
            continue;
        }
        const uint32_t percent = BoundedBusyPercent(old_cpu_info->second, now_cpu_info);
        CPUCoreInfo& core = measured.emplace_back();
        CopyName(core.cpu_core_name, name.c_str());
        core.cpu_utilization = percent;
        if (refresh) {
            now_cpu_info.max_cpu_utilization = percent;
            old_cpu_info->second = now_cpu_info;
            now_cpu_info.max_cpu_utilization = 0;
        }
    }
    m_cpu_core_name.resize(cores);
    if (old_cpu_infos.size() > lines) {
        // A core that comes back starts anew: time has passed that it was not there.
        DropOthers(old_cpu_infos, m_cpu_core_name, MACHINE_LINE);
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcListedCores(uint32_t& machine_figure, bool keep_peak,
                                              std::map<std::string, CPUInfo>& old_cpu_infos,
                                              bool refresh, LogCategory* log_handle) {
    std::vector<CPUCoreInfo>& measured = keep_peak ? m_cpu_core_info : m_tiny_cycle_cpu_core_info;
    const int32_t ret = SampleListedCores(measured, old_cpu_infos, refresh, log_handle);
    if (ret != 0) {
        return ret;
    }
    if (m_cpu_core_name.empty()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "Can not find any core, file: %s.", STAT_PATH);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (measured.empty()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "can not get old cpu info of any core.");
        return COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE;
    }
    uint32_t sum = 0;
    for (const CPUCoreInfo& core : measured) {
        sum += core.cpu_utilization;
    }
    machine_figure = keep_peak ? std::max(machine_figure, sum) : sum;
    return 0;
}

int32_t CMonitorPhysicalUtil::GetCPUCoreInfo(std::vector<CPUCoreInfo>& cpu_core_infos,
                                             LogCategory* log_handle) {
    cpu_core_infos.clear();
    if (m_reading != &STRICT_READING) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "cores are kept one by one with the strict reading only.");
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    cpu_core_infos = m_cpu_core_info;
    return 0;
}

int32_t CMonitorPhysicalUtil::DiscoverListedCores(LogCategory* log_handle) {
    for (auto* const old_cpu_infos : {&m_old_cpu_info, &m_old_tiny_cycle_cpu_info}) {
        const int32_t ret = SampleListedCores(m_cpu_core_info, *old_cpu_infos, true, log_handle);
        if (ret != 0) {
            return ret;
        }
    }
    return 0;
}

}  // namespace CorvaneCommon
