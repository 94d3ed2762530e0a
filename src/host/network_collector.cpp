#include "network_collector.h"

#include <algorithm>
#include <utility>

#include "kernel_names.h"
#include "text_file.h"

namespace corvane {

namespace {

constexpr const char* TABLE = "/proc/net/dev";
constexpr uint64_t BYTES_PER_MEGABIT = 1000000 / 8;

void Raise(TrafficPeak& peak, uint64_t bytes_per_second, const std::string& interface) {
    if (bytes_per_second > peak.bytes_per_second) {
        peak = {bytes_per_second, interface};
    }
}

std::string NamesSeen() {
    return " (names seen: " + Joined(InterfaceNames(ReadWholeFile(TABLE))) + ")";
}

}  // namespace

NetworkCollector::NetworkCollector(Monitor& monitor, const ServiceSettings& settings)
    : m_monitor(monitor), m_settings(settings) {}

std::string NetworkCollector::Reason(int32_t status) const {
    PathTrouble trouble;
    const std::string text = ReadWholeFile(TABLE, &trouble);
    if (!trouble.text.empty()) {
        return trouble.text;
    }
    if (m_settings.compatible && text.size() > COMPATIBLE_TEXT_LENGTH) {
        return std::string(TABLE) + " is longer than " + std::to_string(COMPATIBLE_TEXT_LENGTH) +
               " characters";
    }
    if (m_settings.compatible) {
        return status == COMMON_ERR_INVALID_ARGUMENTS ? "the interfaces have changed"
                                                      : "cannot parse /proc/net/dev";
    }
    return status == COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE
               ? "all interfaces are new, measured from the next cycle on"
               : "no interface matched" + NamesSeen();
}

void NetworkCollector::RunCycle(Clock::time_point now) {
    const Elapsed elapsed(m_since, now);
    const int32_t status = m_monitor.CalcNetworkMonitorInfo(elapsed.Whole(), true, m_settings.log);
    m_interfaces.clear();
    if (status != COMMON_ERR_LINUX_SYSTEM_CALL_FAIL) {
        m_since = now;  // also where it only took new samples
    }
    if (status != 0) {
        m_record.Failed(Reason(status));
    } else if (m_settings.compatible) {
        KeepBusiest(elapsed);
    } else {
        m_record.Measured();
        KeepInterfaces(elapsed);
    }
}

void NetworkCollector::KeepInterfaces(const Elapsed& elapsed) {
    std::vector<CorvaneCommon::NetworkInterfaceInfo> infos;
    m_monitor.GetNetworkInterfaceInfo(infos, m_settings.log);
    for (const CorvaneCommon::NetworkInterfaceInfo& info : infos) {
        m_interfaces.push_back(
            {info.nic_name, elapsed.Correct(info.input_bytes), elapsed.Correct(info.output_bytes),
             elapsed.Correct(info.input_packets), elapsed.Correct(info.output_packets)});
        const InterfaceFigures& figures = m_interfaces.back();
        Raise(m_receive, figures.receive_bytes_per_second, figures.name);
        Raise(m_transmit, figures.transmit_bytes_per_second, figures.name);
    }
}

/// The compatible reading tells of the busiest interface of each direction, in whole megabits, and
/// where it found no interface at all, of 0.
void NetworkCollector::KeepBusiest(const Elapsed& elapsed) {
    CorvaneCommon::NetworkInfoResult busiest;
    m_monitor.GetNetworkMonitorInfo(&busiest, m_settings.log);
    m_monitor.ClearNetWorkPhasedCacheValue(m_settings.log);
    Raise(m_receive, elapsed.Correct(busiest.input_bytes_mb * BYTES_PER_MEGABIT),
          busiest.input_nic_name);
    Raise(m_transmit, elapsed.Correct(busiest.output_bytes_mb * BYTES_PER_MEGABIT),
          busiest.output_nic_name);
    const auto names = InterfaceNames(ReadWholeFile(TABLE));
    if (std::any_of(names.begin(), names.end(), IsMeasuredInterface)) {
        m_record.Measured();
    } else {
        m_record.Failed(
            "no interface matched; only names with eth, em or bond in them are measured" +
            NamesSeen());
    }
}

/// An interface that was asked for and is not there.
void NetworkCollector::NoteMissing(std::vector<std::string>& notes) const {
    for (const std::string& name : m_settings.interfaces) {
        const bool measured =
            std::any_of(m_interfaces.begin(), m_interfaces.end(),
                        [&](const InterfaceFigures& figures) { return figures.name == name; });
        const auto names =
            measured ? std::vector<std::string>{name} : InterfaceNames(ReadWholeFile(TABLE));
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            notes.push_back("network: there is no interface " + name);
        }
    }
}

NetworkFigures NetworkCollector::Take(std::vector<std::string>& notes) {
    NetworkFigures network;
    network.status = m_record.Take();
    network.receive = std::exchange(m_receive, {});
    network.transmit = std::exchange(m_transmit, {});
    network.interfaces = m_interfaces;
    if (network.status.state == FigureState::Failed) {
        notes.push_back("network: " + network.status.reason);
    } else {
        NoteMissing(notes);
    }
    return network;
}

}  // namespace corvane
