// Network interfaces with the strict reading: those that the file lists and the host wants.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "monitor_physical_util.h"
#include "monitor_physical_util_internal.h"
#include "monitor_physical_util_log.h"
#include "monitor_physical_util_reading.h"
#include "monitor_physical_util_text.h"

namespace CorvaneCommon {

namespace {

constexpr const char* LOOPBACK = "lo";

NetworkInterfaceInfo RatesBetween(const NetworkInfo& old_info, const NetworkInfo& now_info,
                                  uint64_t seconds) {
    NetworkInterfaceInfo rates;
    CopyName(rates.nic_name, now_info.nic_name);
    rates.input_bytes = Rise(old_info.input_bytes, now_info.input_bytes) / seconds;
    rates.input_packets = Rise(old_info.input_packets, now_info.input_packets) / seconds;
    rates.output_bytes = Rise(old_info.output_bytes, now_info.output_bytes) / seconds;
    rates.output_packets = Rise(old_info.output_packets, now_info.output_packets) / seconds;
    return rates;
}

/// The busiest interface of each direction, as a tiny cycle finds it.
struct Busiest {
    void Add(const NetworkInterfaceInfo& rates, const NetworkInfoResult& measured) {
        if (result.input_nic_name[0] == '\0' || rates.input_bytes > input_bytes) {
            input_bytes = rates.input_bytes;
            result.input_bytes_mb = measured.input_bytes_mb;
            result.input_packets = measured.input_packets;
            CopyName(result.input_nic_name, rates.nic_name);
        }
        if (result.output_nic_name[0] == '\0' || rates.output_bytes > output_bytes) {
            output_bytes = rates.output_bytes;
            result.output_bytes_mb = measured.output_bytes_mb;
            result.output_packets = measured.output_packets;
            CopyName(result.output_nic_name, rates.nic_name);
        }
    }

    NetworkInfoResult result;
    uint64_t input_bytes = 0;
    uint64_t output_bytes = 0;
};

}  // namespace

bool CMonitorPhysicalUtil::IsNicWanted(const char* nic_name, bool only_first) const {
    if (m_wanted_nic_name.empty()) {
        return strcmp(nic_name, LOOPBACK) != 0;
    }
    const auto end = only_first ? m_wanted_nic_name.begin() + 1 : m_wanted_nic_name.end();
    return std::find(m_wanted_nic_name.begin(), end, nic_name) != end;
}

bool CMonitorPhysicalUtil::TakeInterface(char*& text, bool only_first, NetworkInfo& network_info,
                                         LogCategory* log_handle) const {
    network_info.max_network_input_bytes_mb = 0;
    network_info.max_network_output_bytes_mb = 0;
    while (text != nullptr) {
        char* const line = text;
        text = CutLine(line);
        const char* const counters = ParseNetworkName(line, network_info.nic_name);
        if (counters == nullptr || !IsNicWanted(network_info.nic_name, only_first)) {
            continue;
        }
        if (text != nullptr && ParseNetworkCounters(counters, network_info)) {
            return true;
        }
        // As if it were gone; the others have figures all the same.
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, buf: %s.", line);
    }
    return false;
}

int32_t CMonitorPhysicalUtil::CalcListedInterfaces(char* raw_network_info,
                                                   const NetworkCycle& cycle,
                                                   uint64_t time_interval, bool refresh,
                                                   LogCategory* log_handle) {
    DropLatest(cycle);
    const bool is_tiny = cycle.network_interface_infos == nullptr;
    // A new one's baseline is taken with the others', so that one interval fits all.
    const bool takes_baselines = refresh || cycle.old_network_info.empty();
    const RateRules rules = {!is_tiny, false, "can not get old network info, nic_name: %s."};
    Busiest busiest;
    size_t listed = 0;
    size_t sampled = 0;
    size_t measured = 0;
    NetworkInfo now_network_info;
    while (TakeInterface(raw_network_info, is_tiny, now_network_info, log_handle)) {
        const std::string& name = SetName(cycle.nic_names, listed++, now_network_info.nic_name);
        const auto found = cycle.old_network_info.find(name);
        if (found == cycle.old_network_info.end()) {
            if (takes_baselines) {
                cycle.old_network_info.emplace(name, now_network_info);
                ++sampled;
            }
            continue;
        }
        const NetworkInterfaceInfo rates =
            RatesBetween(found->second, now_network_info, time_interval);
        NetworkInfoResult result;
        if (CalcRatesSince(cycle.old_network_info, found, rules, result, now_network_info,
                           time_interval, refresh, log_handle) != 0) {
            sampled += refresh ? 1 : 0;  // its counters fell: it is a new one
            continue;
        }
        ++sampled;
        ++measured;
        if (is_tiny) {
            busiest.Add(rates, result);
        } else {
            cycle.store(cycle.network_info_result, result, name.c_str());
            cycle.network_interface_infos->push_back(rates);
        }
    }
    cycle.nic_names.resize(listed);
    if (cycle.old_network_info.size() > sampled) {
        DropOthers(cycle.old_network_info, cycle.nic_names, "");
    }
    if (listed == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "Can not find any interface to measure.");
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (measured == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "can not get old network info of any interface.");
        return COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE;
    }
    if (is_tiny) {
        cycle.network_info_result = busiest.result;
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::DiscoverListedInterfaces(LogCategory* log_handle) {
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* raw_network_info, uint32_t length) {
        return GetRawNetworkInfo(raw_network_info, length, log_handle);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawNetWorkInfo failed, ret: %d.", ret);
        return ret;
    }
    NetworkInfo network_info;
    for (char* rest = text.Data(); TakeInterface(rest, false, network_info, log_handle);) {
        m_old_network_info[network_info.nic_name] = network_info;
        m_tiny_old_network_info[network_info.nic_name] = network_info;
    }
    return 0;
}

void CMonitorPhysicalUtil::DropLatest(const NetworkCycle& cycle) const {
    if (m_reading == &STRICT_READING && cycle.network_interface_infos == nullptr) {
        cycle.network_info_result = NetworkInfoResult();
    }
}

int32_t CMonitorPhysicalUtil::SetNetworkInterfaces(const char** nic_name, uint32_t nic_name_num,
                                                   LogCategory* log_handle) {
    m_wanted_nic_name.clear();
    for (uint32_t i = 0; nic_name != nullptr && i < nic_name_num; ++i) {
        if (!IsEmpty(nic_name[i])) {
            m_wanted_nic_name.emplace_back(nic_name[i]);
        }
    }
    if (m_reading != &STRICT_READING) {
        return 0;
    }
    DropInterfaces();
    return DiscoverListedInterfaces(log_handle);
}

int32_t CMonitorPhysicalUtil::GetNetworkInterfaceInfo(
    std::vector<NetworkInterfaceInfo>& network_interface_infos, LogCategory* log_handle) {
    network_interface_infos.clear();
    if (m_reading != &STRICT_READING) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "interfaces are kept one by one with the strict reading only.");
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    network_interface_infos = m_network_interface_info;
    return 0;
}

}  // namespace CorvaneCommon
