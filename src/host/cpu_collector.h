// CPU of the machine and of its cores, cycle after cycle: /proc/stat.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "family_record.h"
#include "monitor_physical_util.h"
#include "report.h"
#include "schedule.h"
#include "service_settings.h"

namespace corvane {

class CpuCollector {
public:
    using Monitor = CorvaneCommon::CMonitorPhysicalUtil;

    CpuCollector(Monitor& monitor, const ServiceSettings& settings);

    /// Before a cycle with a report: the compatible reading takes the cores' figures one by one,
    /// against the samples that the cycle will replace.
    void BeforeReport(Clock::time_point now);

    void RunTinyCycle(Clock::time_point now);
    void RunCycle(Clock::time_point now);

    /// Why the latest cycle did not measure the machine; empty when it did.
    const std::string& Failure() const { return m_failure; }
    uint32_t CoreNumber() const { return m_core_number; }

    CpuFigures Take(std::vector<std::string>& notes);

private:
    std::string Reason(int32_t status) const;
    void KeepCores();
    void KeepCore(const std::string& name, uint32_t percent);

    Monitor& m_monitor;
    const ServiceSettings& m_settings;
    FamilyRecord m_record;
    std::string m_failure;
    uint32_t m_core_number = 0;
    uint32_t m_peak_percent = 0;
    std::optional<uint32_t> m_latest_percent;
    std::vector<CoreFigures> m_cores;
    Clock::time_point m_discovered_at;  // that moment has no cycle to measure
};

}  // namespace corvane
