// The two readings of kernel files, and the choice between them.
#include "monitor_physical_util_reading.h"

#include <cstring>

#include "monitor_physical_util.h"
#include "monitor_physical_util_internal.h"
#include "monitor_physical_util_text.h"

namespace CorvaneCommon {

namespace {

/// As text, wherever it stands. Hosts rely on the order of the kernel's files: /proc/stat lists the
/// machine first and the cores in ascending order, so that the first occurrence of a core's name is
/// its own line; eth1, though, is read from an earlier veth1 if there is one.
char* FindText(char* text, const char* name) {
    return strstr(text, name);
}

char* FindCore(char* text, const char* name) {
    return FindLine(text, name, ' ');
}

char* FindKeyOrInterface(char* text, const char* name) {
    return FindLine(text, name, ':');
}

}  // namespace

const CMonitorPhysicalUtil::Reading CMonitorPhysicalUtil::COMPATIBLE_READING = {
    false,
    true,
    false,
    &CMonitorPhysicalUtil::InitDefaultCPUInfo,
    &CMonitorPhysicalUtil::CalcKnownCores,
    FindText,
    ParseCPULine,
    BusyPercent,
    WallClockMicroseconds,
    ParseProcessTimes,
    ParseThreadTimes,
    &CMonitorPhysicalUtil::CalcProcessByMachine,
    FindText,
    true,
    false,
    &CMonitorPhysicalUtil::InitDefaultNetWorkInfo,
    &CMonitorPhysicalUtil::CalcKnownInterfaces,
    FindText,
    &CMonitorPhysicalUtil::SetDisksByName,
    &CMonitorPhysicalUtil::GetDiskNameByMount,
    &CMonitorPhysicalUtil::CalcDiskByName,
    &CMonitorPhysicalUtil::CalcDisksByName,
};

const CMonitorPhysicalUtil::Reading CMonitorPhysicalUtil::STRICT_READING = {
    true,
    false,
    true,
    &CMonitorPhysicalUtil::DiscoverListedCores,
    &CMonitorPhysicalUtil::CalcListedCores,
    FindCore,
    ParseCoreLine,
    BoundedBusyPercent,
    MonotonicMicroseconds,
    ParseProcessStat,
    ParseThreadStat,
    &CMonitorPhysicalUtil::CalcProcessByClock,
    FindKeyOrInterface,
    false,
    true,
    &CMonitorPhysicalUtil::DiscoverListedInterfaces,
    &CMonitorPhysicalUtil::CalcListedInterfaces,
    FindKeyOrInterface,
    &CMonitorPhysicalUtil::SetDisksByNumber,
    &CMonitorPhysicalUtil::GetDiskNameOfTarget,
    &CMonitorPhysicalUtil::CalcDiskByNumber,
    &CMonitorPhysicalUtil::CalcDisksByNumber,
};

std::vector<char>* CMonitorPhysicalUtil::WholeText() {
    return m_reading->whole_files ? &m_file_text : nullptr;
}

void CMonitorPhysicalUtil::DropInterfaces() {
    m_network_nic_name.clear();
    m_old_network_info.clear();
    m_tiny_old_network_info.clear();
    m_proc_old_network_info.clear();
    m_network_info_result = NetworkInfoResult();
    m_network_info_result_curr = NetworkInfoResult();
    m_proc_network_info_result_curr = NetworkInfoResult();
    m_proc_network_pid = 0;
    m_network_interface_info.clear();
}

void CMonitorPhysicalUtil::DropAll() {
    DropInterfaces();
    m_all_max_cpu_utilization = 0;
    m_all_tiny_cycle_cpu_utilization = 0;
    m_cpu_core_name.clear();
    m_cpu_core_info.clear();
    m_old_cpu_info.clear();
    m_old_tiny_cycle_cpu_info.clear();
    m_old_total_cpu_info.clear();
    m_old_total_cpu_info_for_tiny_cycle.clear();
    m_old_process_cpu_info.clear();
    m_old_process_cpu_info_for_tiny_cycle.clear();
    m_process_cpu_result_info.clear();
    m_process_max_thread_cpu_result_info.clear();
    m_process_cpu_result_info_for_tiny_cycle.clear();
    m_process_max_thread_cpu_result_info_for_tiny_cycle.clear();
    m_total_disk_num = 0;
    memset(m_disk_name, 0, sizeof(m_disk_name));
    m_old_disk_io_info.clear();
    m_disk_io_result_info.clear();
    m_dir_to_disk_map.clear();
    m_raid_to_disk_map.clear();
    m_disk_real_path.clear();
    m_disk_target.clear();
    m_disk_line_figures.clear();
}

int32_t CMonitorPhysicalUtil::SetStrictReading(bool strict, LogCategory* log_handle) {
    m_file_text.resize(strict ? FILE_BUFFER_LENGTH : 0);  // first: what fails must drop nothing
    DropAll();
    m_reading = strict ? &STRICT_READING : &COMPATIBLE_READING;
    const int32_t interfaces = (this->*m_reading->discover_interfaces)(log_handle);
    const int32_t cores = (this->*m_reading->discover_cores)(log_handle);
    return interfaces != 0 ? interfaces : cores;
}

}  // namespace CorvaneCommon
