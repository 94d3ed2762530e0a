// Network interfaces of the machine (/proc/net/dev) and of a process's namespace
// (/proc/PID/net/dev).
#include <algorithm>
#include <cstdio>
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

constexpr const char* NET_DEV_PATH = "/proc/net/dev";
constexpr size_t MAX_NIC_NUM = 1024;  // bounds discovery should the stream never end
constexpr uint64_t BITS_PER_BYTE = 8;
constexpr uint64_t BITS_PER_MEGABIT = 1000000;
constexpr int NUMBERS_BETWEEN_DIRECTIONS = 6;

// The tiny cycles watch this one interface: hosts name the interface that matters so.
constexpr const char* TINY_CYCLE_NIC = "eth1";

/// Which lines are interfaces worth measuring. Anywhere in the line, so veth0 and gem1 are, too.
bool IsMeasuredInterface(const std::string& line) {
    return line.find("eth") != std::string::npos || line.find("em") != std::string::npos ||
           line.find("bond") != std::string::npos;
}

uint64_t MegabitsPerSecond(uint64_t old_bytes, uint64_t now_bytes, uint64_t seconds) {
    if (now_bytes < old_bytes) {
        return 0;  // the counter was reset
    }
    return (now_bytes - old_bytes) * BITS_PER_BYTE / seconds / BITS_PER_MEGABIT;
}

uint64_t PacketsPerSecond(uint64_t old_packets, uint64_t now_packets, uint64_t seconds) {
    return now_packets < old_packets ? 0 : (now_packets - old_packets) / seconds;
}

/// Whether a counter stepped back: it was reset, or another interface has taken the name.
bool AnyFell(const NetworkInfo& old_info, const NetworkInfo& now_info) {
    return now_info.input_bytes < old_info.input_bytes ||
           now_info.input_packets < old_info.input_packets ||
           now_info.output_bytes < old_info.output_bytes ||
           now_info.output_packets < old_info.output_packets;
}

/// The text behind a name and its colon. A name that the caller made up may hold a newline, and
/// then reach to the end of the text, behind which nothing may be read.
const char* TextBehindName(const char* occurrence, size_t name_length, const char* text_end) {
    const auto left = static_cast<size_t>(text_end - occurrence);
    return name_length < left ? occurrence + name_length + 1 : text_end;
}

int32_t CalcRates(std::map<std::string, NetworkInfo>& old_network_info, const RateRules& rules,
                  NetworkInfoResult* network_info_result, NetworkInfo* now_network_info,
                  const char* nic_name, uint64_t time_interval, bool refresh,
                  LogCategory* log_handle) {
    if (time_interval == 0 || network_info_result == nullptr || now_network_info == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "now_network_info is NULL or network_info_result is NULL or 0>=time interval, "
                    "now_network_info: %p, network_info_result: %p, time interval: %lu.",
                    static_cast<const void*>(now_network_info),
                    static_cast<const void*>(network_info_result), time_interval);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    *network_info_result = NetworkInfoResult();
    const auto found =
        nic_name == nullptr ? old_network_info.end() : old_network_info.find(nic_name);
    if (found == old_network_info.end()) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, rules.not_found_text,
                    nic_name == nullptr ? LOG_NULL_TEXT : nic_name);
        return COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE;
    }
    return CalcRatesSince(old_network_info, found, rules, *network_info_result, *now_network_info,
                          time_interval, refresh, log_handle);
}

/// Normal cycle: each direction names the interface that first reached the highest rate.
void RaiseBusiest(NetworkInfoResult& stored, const NetworkInfoResult& measured,
                  const char* nic_name) {
    if (measured.input_bytes_mb > stored.input_bytes_mb) {
        stored.input_bytes_mb = measured.input_bytes_mb;
        CopyName(stored.input_nic_name, nic_name);
    }
    if (measured.output_bytes_mb > stored.output_bytes_mb) {
        stored.output_bytes_mb = measured.output_bytes_mb;
        CopyName(stored.output_nic_name, nic_name);
    }
}

/// Tiny cycles: the latest interval wins.
void StoreLatest(NetworkInfoResult& stored, const NetworkInfoResult& measured,
                 const char* nic_name) {
    stored = measured;
    CopyName(stored.input_nic_name, nic_name);
    CopyName(stored.output_nic_name, nic_name);
}

int32_t CopyResult(NetworkInfoResult* destination, const NetworkInfoResult& source,
                   LogCategory* log_handle) {
    if (destination == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "network_info_result is NULL, network_info_result: %p.",
                    static_cast<const void*>(destination));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    *destination = source;
    return 0;
}

/// Empties a list of names; unless it is released, an allocation that fails brings them back: an
/// empty list would never be discovered anew, the old one lets the next pass try again.
class NameListKeeper {
public:
    explicit NameListKeeper(std::vector<std::string>& names) : m_names(names) {
        m_previous.swap(names);
    }
    NameListKeeper(const NameListKeeper&) = delete;
    NameListKeeper& operator=(const NameListKeeper&) = delete;
    ~NameListKeeper() {
        if (!m_released) {
            m_names.swap(m_previous);
        }
    }
    void Release() { m_released = true; }

private:
    std::vector<std::string>& m_names;
    std::vector<std::string> m_previous;
    bool m_released = false;
};

void ClearPeaks(std::map<std::string, NetworkInfo>& network_infos) {
    for (auto& [nic_name, network_info] : network_infos) {
        network_info.max_network_input_bytes_mb = 0;
        network_info.max_network_output_bytes_mb = 0;
    }
}

}  // namespace

NetworkInfo& NetworkInfo::operator=(const NetworkInfo& other) {
    if (this == &other) {
        return *this;
    }
    CopyName(nic_name, other.nic_name);
    input_bytes = other.input_bytes;
    input_packets = other.input_packets;
    output_bytes = other.output_bytes;
    output_packets = other.output_packets;
    max_network_input_bytes_mb = other.max_network_input_bytes_mb;
    max_network_output_bytes_mb = other.max_network_output_bytes_mb;
    return *this;
}

NetworkInfoResult& NetworkInfoResult::operator=(const NetworkInfoResult& other) {
    if (this == &other) {
        return *this;
    }
    CopyName(input_nic_name, other.input_nic_name);
    CopyName(output_nic_name, other.output_nic_name);
    input_bytes_mb = other.input_bytes_mb;
    output_bytes_mb = other.output_bytes_mb;
    input_packets = other.input_packets;
    output_packets = other.output_packets;
    return *this;
}

bool ParseNetworkCounters(const char* text, NetworkInfo& network_info) {
    return ScanNumber(text, network_info.input_bytes) &&
           ScanNumber(text, network_info.input_packets) &&
           SkipNumbers(text, NUMBERS_BETWEEN_DIRECTIONS) &&
           ScanNumber(text, network_info.output_bytes) &&
           ScanNumber(text, network_info.output_packets);
}

const char* ParseNetworkName(const char* line, char (&nic_name)[MONITOR_NAME_LENGTH]) {
    while (*line == ' ') {
        ++line;
    }
    const char* const colon = strchr(line, ':');
    if (colon == nullptr) {
        return nullptr;
    }
    CopyName(nic_name, line, static_cast<size_t>(colon - line));
    return colon + 1;
}

int32_t CalcRatesSince(std::map<std::string, NetworkInfo>& old_network_info,
                       std::map<std::string, NetworkInfo>::iterator old_sample,
                       const RateRules& rules, NetworkInfoResult& result, NetworkInfo& now,
                       uint64_t time_interval, bool refresh, LogCategory* log_handle) {
    NetworkInfo& old = old_sample->second;
    if (!rules.a_fall_is_0 && AnyFell(old, now)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, rules.not_found_text,
                    old_sample->first.c_str());
        if (refresh) {
            old = now;
        } else {
            old_network_info.erase(old_sample);
        }
        return COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE;
    }
    result.input_bytes_mb = MegabitsPerSecond(old.input_bytes, now.input_bytes, time_interval);
    result.output_bytes_mb = MegabitsPerSecond(old.output_bytes, now.output_bytes, time_interval);
    result.input_packets = PacketsPerSecond(old.input_packets, now.input_packets, time_interval);
    result.output_packets = PacketsPerSecond(old.output_packets, now.output_packets, time_interval);

    // Peaks rise whether or not the counters are refreshed.
    uint64_t& input_peak = old.max_network_input_bytes_mb;
    uint64_t& output_peak = old.max_network_output_bytes_mb;
    input_peak = std::max(input_peak, result.input_bytes_mb);
    output_peak = std::max(output_peak, result.output_bytes_mb);
    if (rules.report_peaks) {
        result.input_bytes_mb = input_peak;
        result.output_bytes_mb = output_peak;
    }
    if (!refresh) {
        return 0;
    }
    now.max_network_input_bytes_mb = result.input_bytes_mb;
    now.max_network_output_bytes_mb = result.output_bytes_mb;
    old = now;
    return 0;
}

int32_t CMonitorPhysicalUtil::InitDefaultNetWorkInfo(LogCategory* log_handle) {
    // The stored samples stay: those of interfaces found now are overwritten.
    NameListKeeper keeper(m_network_nic_name);
    const int32_t ret = DiscoverLines(NET_DEV_PATH, m_network_nic_name, MAX_NIC_NUM,
                                      "maybe deadloop, m_network_nic_name.size=%zd",
                                      &CMonitorPhysicalUtil::StoreFirstNetworkInfo, log_handle);
    keeper.Release();
    return ret;
}

int32_t CMonitorPhysicalUtil::StoreFirstNetworkInfo(const std::string& line,
                                                    LogCategory* log_handle) {
    if (!IsMeasuredInterface(line)) {
        return 0;
    }
    NetworkInfo network_info;
    const char* const counters = ParseNetworkName(line.c_str(), network_info.nic_name);
    if (counters == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "the file: %s has wrong format of data, buf: %s.", NET_DEV_PATH, line.c_str());
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (!ParseNetworkCounters(counters, network_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, buf: %s", counters);
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    m_old_network_info[network_info.nic_name] = network_info;
    m_tiny_old_network_info[network_info.nic_name] = network_info;
    m_proc_old_network_info[network_info.nic_name] = network_info;
    m_network_nic_name.emplace_back(network_info.nic_name);
    return 0;
}

int32_t CMonitorPhysicalUtil::GetRawNetworkInfo(char* raw_network_info,
                                                uint32_t raw_network_info_length,
                                                LogCategory* log_handle) {
    if (raw_network_info == nullptr || raw_network_info_length == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "raw_network_info is NULL or raw_network_info_length is 0, "
                    "raw_network_info: %p, raw_network_info_length: %u.",
                    static_cast<const void*>(raw_network_info), raw_network_info_length);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    const int32_t ret = ReadFromFile(raw_network_info, raw_network_info_length, NET_DEV_PATH,
                                     log_handle, Buffer::Unset);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "ReadFromFile failed, file: %s.", NET_DEV_PATH);
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::GetNetworkInfo(NetworkInfo* network_info, const char* nic_name,
                                             LogCategory* log_handle) {
    if (IsEmpty(nic_name) || network_info == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "nic_name is NULL or nic_name's length is 0 or network_info is NULL, "
                    "nic_name: %p, network_info: %p.",
                    static_cast<const void*>(nic_name), static_cast<const void*>(network_info));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    network_info->max_network_input_bytes_mb = 0;
    network_info->max_network_output_bytes_mb = 0;
    CopyName(network_info->nic_name, nic_name);
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* raw_network_info, uint32_t length) {
        return GetRawNetworkInfo(raw_network_info, length, log_handle);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawNetWorkInfo failed, ret: %d.", ret);
        return ret;
    }
    char* const buffer = text.Data();
    const char* const text_end = buffer + strlen(buffer);
    char* const occurrence = m_reading->find_interface(buffer, nic_name);
    if (occurrence == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "%s Can not find %s, maybe network changed, reinit network info.",
                    LOG_NULL_TEXT, nic_name);
        if (m_reading->rediscovers) {
            InitDefaultNetWorkInfo(log_handle);
        }
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (CutLine(occurrence) == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "%s Can not find \\n after %s.", occurrence,
                    nic_name);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (!ParseNetworkCounters(TextBehindName(occurrence, strlen(nic_name), text_end),
                              *network_info)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, buf: %s.", buffer);
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcNetworkInfo(NetworkInfoResult* network_info_result,
                                              NetworkInfo* now_network_info, const char* nic_name,
                                              uint64_t time_interval, bool refresh,
                                              LogCategory* log_handle) {
    return CalcRates(m_old_network_info,
                     {true, m_reading->rediscovers, "can not get old network info, nic_name: %s."},
                     network_info_result, now_network_info, nic_name, time_interval, refresh,
                     log_handle);
}

int32_t CMonitorPhysicalUtil::CalcNetworkInfoForTinyCycle(NetworkInfoResult* network_info_result,
                                                          NetworkInfo* now_network_info,
                                                          const char* nic_name,
                                                          uint64_t time_interval, bool refresh,
                                                          LogCategory* log_handle) {
    return CalcRates(m_tiny_old_network_info,
                     {false, m_reading->rediscovers, "can not get old network info, nic_name: %s."},
                     network_info_result, now_network_info, nic_name, time_interval, refresh,
                     log_handle);
}

int32_t CMonitorPhysicalUtil::CalcProcessNetworkInfoForTinyCycle(
    NetworkInfoResult* network_info_result, NetworkInfo* now_network_info, const char* nic_name,
    uint64_t time_interval, bool refresh, LogCategory* log_handle) {
    return CalcRates(m_proc_old_network_info,
                     {false, m_reading->rediscovers,
                      "can not get old network info from m_proc_old_network_info, nic_name: %s."},
                     network_info_result, now_network_info, nic_name, time_interval, refresh,
                     log_handle);
}

int32_t CMonitorPhysicalUtil::CalcKnownInterfaces(char* raw_network_info, const NetworkCycle& cycle,
                                                  uint64_t time_interval, bool refresh,
                                                  LogCategory* log_handle) {
    NetworkInfoResult network_info_result;
    NetworkInfo now_network_info;  // its name stays empty: the key of the stored sample names it
    const char* const text_end = raw_network_info + strlen(raw_network_info);
    char* position = raw_network_info;
    for (const std::string& nic_name : m_network_nic_name) {
        char* const occurrence = strstr(position, nic_name.c_str());
        if (occurrence == nullptr) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "Can not find %s, maybe network changed, reinit network info.",
                        nic_name.c_str());
            InitDefaultNetWorkInfo(log_handle);
            return COMMON_ERR_INVALID_ARGUMENTS;
        }
        position = CutLine(occurrence);
        if (position == nullptr) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "%s Can not find \\n after %s.", occurrence,
                        nic_name.c_str());
            return COMMON_ERR_INVALID_ARGUMENTS;
        }
        if (cycle.only_nic_name != nullptr && nic_name != cycle.only_nic_name) {
            continue;
        }
        if (!ParseNetworkCounters(TextBehindName(occurrence, nic_name.size(), text_end),
                                  now_network_info)) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, buf: %s.",
                        raw_network_info);
            return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
        }
        const int32_t ret =
            (this->*cycle.calc)(&network_info_result, &now_network_info, nic_name.c_str(),
                                time_interval, refresh, log_handle);
        if (ret != 0) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "CalcNetworkInfo failed, ret: %d, nic_name: %s.", ret, nic_name.c_str());
            return ret;
        }
        cycle.store(cycle.network_info_result, network_info_result, nic_name.c_str());
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::CalcHostNetworkInfo(const NetworkCycle& cycle, uint64_t time_interval,
                                                  bool refresh, LogCategory* log_handle) {
    if (time_interval == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "0>=time interval, time interval: %lu.",
                    time_interval);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* raw_network_info, uint32_t length) {
        return GetRawNetworkInfo(raw_network_info, length, log_handle);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetRawNetWorkInfo failed, ret: %d.", ret);
        DropLatest(cycle);
        return ret;
    }
    return (this->*m_reading->calc_interfaces)(text.Data(), cycle, time_interval, refresh,
                                               log_handle);
}

int32_t CMonitorPhysicalUtil::CalcNetworkMonitorInfo(uint64_t time_interval, bool refresh,
                                                     LogCategory* log_handle) {
    m_network_interface_info.clear();
    const NetworkCycle cycle = {nullptr,
                                &CMonitorPhysicalUtil::CalcNetworkInfo,
                                RaiseBusiest,
                                m_network_info_result,
                                m_old_network_info,
                                m_network_nic_name,
                                &m_network_interface_info};
    return CalcHostNetworkInfo(cycle, time_interval, refresh, log_handle);
}

int32_t CMonitorPhysicalUtil::CalcNetworkMonitorInfoForTinyCycle(uint64_t time_interval,
                                                                 bool refresh,
                                                                 LogCategory* log_handle) {
    const NetworkCycle cycle = {TINY_CYCLE_NIC,
                                &CMonitorPhysicalUtil::CalcNetworkInfoForTinyCycle,
                                StoreLatest,
                                m_network_info_result_curr,
                                m_tiny_old_network_info,
                                m_network_nic_name,
                                nullptr};
    return CalcHostNetworkInfo(cycle, time_interval, refresh, log_handle);
}

int32_t CMonitorPhysicalUtil::GetNetworkMonitorInfo(NetworkInfoResult* network_info_result,
                                                    LogCategory* log_handle) {
    return CopyResult(network_info_result, m_network_info_result, log_handle);
}

int32_t CMonitorPhysicalUtil::GetNetworkMonitorInfo(NetworkInfoResult* network_info_result,
                                                    const char* nic_name, uint64_t time_interval,
                                                    bool refresh, LogCategory* log_handle) {
    if (IsEmpty(nic_name) || network_info_result == nullptr || time_interval == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "nic_name is NULL or nic_name's length is 0 or network_info_result is NULL or "
                    "0>=time interval, nic_name: %p, network_info_result: %p, time interval: %lu.",
                    static_cast<const void*>(nic_name),
                    static_cast<const void*>(network_info_result), time_interval);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    NetworkInfo now_network_info;
    int32_t ret = GetNetworkInfo(&now_network_info, nic_name, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetNetworkInfo failed, ret: %d, nic_name: %s.",
                    ret, nic_name);
        return ret;
    }
    ret = CalcNetworkInfo(network_info_result, &now_network_info, nic_name, time_interval, refresh,
                          log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "CalcNetworkInfo failed, ret: %d, nic_name: %s.", ret, nic_name);
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::GetNetworkMonitorInfoForTinyCycle(
    NetworkInfoResult* network_info_result, LogCategory* log_handle) {
    return CopyResult(network_info_result, m_network_info_result_curr, log_handle);
}

int32_t CMonitorPhysicalUtil::ClearNetWorkPhasedCacheValue(LogCategory* /*log_handle*/) {
    ClearPeaks(m_old_network_info);
    m_network_info_result = NetworkInfoResult();
    return 0;
}

int32_t CMonitorPhysicalUtil::GetProcessRawNetworkInfo(char* raw_network_info,
                                                       uint32_t raw_network_info_length,
                                                       uint32_t pid, LogCategory* log_handle) {
    if (pid == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "illegal pid <= 0, pid: %u.", pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (raw_network_info == nullptr || raw_network_info_length == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "raw_network_info is NULL or raw_network_info_length is 0, "
                    "raw_network_info: %p, raw_network_info_length: %u.",
                    static_cast<const void*>(raw_network_info), raw_network_info_length);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    char file_path[MONITOR_NAME_LENGTH];
    FormatProcessPath(file_path, pid, "net/dev");
    const int32_t ret =
        ReadFromFile(raw_network_info, raw_network_info_length, file_path, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "ReadFromFile failed, file: %s.", file_path);
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::CalcProcessNetworkMonitorInfoForTinyCycle(uint32_t pid,
                                                                        uint64_t time_interval,
                                                                        bool refresh,
                                                                        LogCategory* log_handle) {
    if (pid == 0 || !IsPIDValid(pid, log_handle)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "0 >= pid or pid not exist pid: %d.", pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (time_interval == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "0>=time interval, time interval: %lu.",
                    time_interval);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    const NetworkCycle cycle = {TINY_CYCLE_NIC,
                                &CMonitorPhysicalUtil::CalcProcessNetworkInfoForTinyCycle,
                                StoreLatest,
                                m_proc_network_info_result_curr,
                                m_proc_old_network_info,
                                m_proc_network_nic_name,
                                nullptr};
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* raw_network_info, uint32_t length) {
        memset(raw_network_info, 0, length);
        return GetProcessRawNetworkInfo(raw_network_info, length, pid, log_handle);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetProcessRawNetworkInfo failed, ret: %d.",
                    ret);
        DropLatest(cycle);
        return ret;
    }
    if (m_proc_network_pid != pid && !m_reading->rediscovers) {
        m_proc_old_network_info.clear();  // of another process, perhaps in another namespace
        m_proc_network_pid = pid;
    }
    return (this->*m_reading->calc_interfaces)(text.Data(), cycle, time_interval, refresh,
                                               log_handle);
}

int32_t CMonitorPhysicalUtil::GetProcessNetworkMonitorInfoForTinyCycle(
    NetworkInfoResult* network_info_result, LogCategory* log_handle) {
    return CopyResult(network_info_result, m_proc_network_info_result_curr, log_handle);
}

int32_t CMonitorPhysicalUtil::ClearProcessNetWorkPhasedCacheValueForTinyCycle(
    LogCategory* /*log_handle*/) {
    ClearPeaks(m_proc_old_network_info);
    ClearPeaks(m_tiny_old_network_info);
    m_network_info_result_curr = NetworkInfoResult();
    m_proc_network_info_result_curr = NetworkInfoResult();
    return 0;
}

}  // namespace CorvaneCommon
