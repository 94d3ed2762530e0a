#include "cpu_collector.h"

#include <algorithm>
#include <utility>

#include "kernel_names.h"
#include "text_file.h"

namespace corvane {

namespace {

constexpr uint32_t PERCENT = 100;
constexpr const char* CORES_CHANGED = "the machine's cores have changed";
constexpr const char* COUNTERS_FELL = "the counters of /proc/stat fell";

}  // namespace

CpuCollector::CpuCollector(Monitor& monitor, const ServiceSettings& settings)
    : m_monitor(monitor), m_settings(settings) {}

std::string CpuCollector::Reason(int32_t status) const {
    PathTrouble trouble;
    const std::string text = ReadWholeFile("/proc/stat", &trouble);
    if (!trouble.text.empty()) {
        return trouble.text;
    }
    const size_t last_core = text.rfind("\ncpu");
    if (m_settings.compatible && last_core != std::string::npos &&
        text.find('\n', last_core + 1) >= COMPATIBLE_TEXT_LENGTH) {
        return "the lines of " + std::to_string(CoreNames(text).size()) +
               " cores in /proc/stat are longer than " + std::to_string(COMPATIBLE_TEXT_LENGTH) +
               " characters";
    }
    return status == COMMON_ERR_INVALID_ARGUMENTS ? CORES_CHANGED : "cannot parse /proc/stat";
}

void CpuCollector::BeforeReport(Clock::time_point now) {
    m_cores.clear();
    if (!m_settings.cores || !m_settings.compatible) {
        return;
    }
    for (const std::string& name : CoreNames(ReadWholeFile("/proc/stat"))) {
        CorvaneCommon::CPUInfoResult result;
        const int32_t status =
            m_monitor.GetCPUMonitorInfo(&result, name.c_str(), false, m_settings.log);
        if (status == COMMON_ERR_INVALID_ARGUMENTS) {
            m_discovered_at = now;
        }
        if (status != 0) {
            m_cores.clear();
            return;
        }
        KeepCore(name, result.cpu_utilization);
    }
}

void CpuCollector::RunTinyCycle(Clock::time_point now) {
    // A discovery takes the samples of both cycles anew: a pass at the same moment would measure
    // nothing and call it 0.
    m_latest_percent.reset();
    if (m_discovered_at == now) {
        return;
    }
    const int32_t status = m_monitor.CalcCPUMonitorInfoForTinyCycle(true, m_settings.log);
    CorvaneCommon::CPUInfoResult latest;
    m_monitor.GetCPUMonitorInfoForTinyCycle(&latest, m_settings.log);
    if (status == COMMON_ERR_INVALID_ARGUMENTS) {
        m_discovered_at = now;
    }
    if (status == 0 && latest.cpu_core_num > 0 &&
        latest.cpu_utilization <= PERCENT * latest.cpu_core_num) {
        m_latest_percent = latest.cpu_utilization;
    }
}

void CpuCollector::RunCycle(Clock::time_point now) {
    m_failure = CORES_CHANGED;
    if (m_discovered_at != now) {
        const int32_t status = m_monitor.CalcCPUMonitorInfo(true, m_settings.log);
        m_failure = status == 0 ? "" : Reason(status);
    }
    // The peak is kept here: the monitor forgets its own when the cores change, and a figure that
    // no machine can have would hide the others.
    CorvaneCommon::CPUInfoResult result;
    m_monitor.GetCPUMonitorInfo(&result, m_settings.log);
    m_monitor.ClearCPUPhasedCacheValue(m_settings.log);
    m_core_number = result.cpu_core_num;
    if (m_failure.empty() && m_core_number == 0) {
        m_failure = WhyNothingCameOf("/proc/stat", "/proc/stat has no line of a core");
    } else if (m_failure.empty() && result.cpu_utilization > PERCENT * m_core_number) {
        m_failure = COUNTERS_FELL;
    }
    if (!m_failure.empty()) {
        m_record.Failed(m_failure);
        return;
    }
    m_peak_percent = std::max(m_peak_percent, result.cpu_utilization);
    m_record.Measured();
}

/// The strict reading keeps the cores' figures of the latest cycle.
void CpuCollector::KeepCores() {
    std::vector<CorvaneCommon::CPUCoreInfo> infos;
    m_monitor.GetCPUCoreInfo(infos, m_settings.log);
    for (const CorvaneCommon::CPUCoreInfo& info : infos) {
        KeepCore(info.cpu_core_name, info.cpu_utilization);
    }
}

void CpuCollector::KeepCore(const std::string& name, uint32_t percent) {
    if (percent <= PERCENT) {  // else its counters fell
        m_cores.push_back({name, percent});
    }
}

CpuFigures CpuCollector::Take(std::vector<std::string>& notes) {
    CpuFigures cpu;
    cpu.status = m_record.Take();
    cpu.core_number = m_core_number;
    cpu.peak_percent = std::exchange(m_peak_percent, 0);
    cpu.latest_percent = m_latest_percent;
    if (!cpu.status.HasFigures()) {
        notes.push_back("cpu: " + cpu.status.reason);
    }
    if (m_settings.cores && !m_settings.compatible) {
        KeepCores();
    }
    if (cpu.status.state == FigureState::Fresh) {
        cpu.cores = std::exchange(m_cores, {});
    }
    return cpu;
}

}  // namespace corvane
