// Traffic of the machine's interfaces, cycle after cycle: /proc/net/dev.
#pragma once

#include <string>
#include <vector>

#include "family_record.h"
#include "monitor_physical_util.h"
#include "report.h"
#include "schedule.h"
#include "service_settings.h"

namespace corvane {

class NetworkCollector {
public:
    using Monitor = CorvaneCommon::CMonitorPhysicalUtil;

    NetworkCollector(Monitor& monitor, const ServiceSettings& settings);

    /// When the monitor took its first samples.
    void Start(Clock::time_point now) { m_since = now; }

    void RunCycle(Clock::time_point now);
    NetworkFigures Take(std::vector<std::string>& notes);

private:
    std::string Reason(int32_t status) const;
    void KeepInterfaces(const Elapsed& elapsed);
    void KeepBusiest(const Elapsed& elapsed);
    void NoteMissing(std::vector<std::string>& notes) const;

    Monitor& m_monitor;
    const ServiceSettings& m_settings;
    Clock::time_point m_since;
    FamilyRecord m_record;
    TrafficPeak m_receive;
    TrafficPeak m_transmit;
    std::vector<InterfaceFigures> m_interfaces;  // of the latest cycle
};

}  // namespace corvane
