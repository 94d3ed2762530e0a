// A fresh monitor for a test, with its private operations and state in reach.
#pragma once

#include <utility>

#include "monitor_physical_util.h"

namespace CorvaneCommon {

struct MonitorPhysicalUtilTestPeer {
    CMonitorPhysicalUtil monitor;

    CMonitorPhysicalUtil* operator->() { return &monitor; }

#define CORVANE_TEST_OPERATION(name)                                \
    template <typename... Arguments>                                \
    auto name(Arguments&&... arguments) {                           \
        return monitor.name(std::forward<Arguments>(arguments)...); \
    }
    CORVANE_TEST_OPERATION(ReadFromFile)
    CORVANE_TEST_OPERATION(GetRealFilePath)
    CORVANE_TEST_OPERATION(InitDefaultCPUInfo)
    CORVANE_TEST_OPERATION(GetRawCPUInfo)
    CORVANE_TEST_OPERATION(GetCPUInfo)
    CORVANE_TEST_OPERATION(CalcCPUInfo)
    CORVANE_TEST_OPERATION(GetProcessCPUInfo)
    CORVANE_TEST_OPERATION(CalcProcessCPUInfo)
    CORVANE_TEST_OPERATION(GetMemoryInfo)
    CORVANE_TEST_OPERATION(GetProcessMemoryInfo)
    CORVANE_TEST_OPERATION(InitDefaultNetWorkInfo)
    CORVANE_TEST_OPERATION(GetRawNetworkInfo)
    CORVANE_TEST_OPERATION(GetNetworkInfo)
    CORVANE_TEST_OPERATION(SetDefaultDirMapToDisk)
    CORVANE_TEST_OPERATION(SetDefaultRaidMap)
    CORVANE_TEST_OPERATION(SetRaidIOStatInfo)
    CORVANE_TEST_OPERATION(GetRawDiskIOInfo)
    CORVANE_TEST_OPERATION(SetDiskIOStatInfo)
    CORVANE_TEST_OPERATION(GetDiskIOInfoImpl)
    CORVANE_TEST_OPERATION(GetDiskIOInfo)
    CORVANE_TEST_OPERATION(CalcDiskIOInfo)
#undef CORVANE_TEST_OPERATION

    decltype(monitor.m_network_nic_name)& network_nic_name = monitor.m_network_nic_name;
    decltype(monitor.m_old_network_info)& old_network_info = monitor.m_old_network_info;
    decltype(monitor.m_old_network_info)& tiny_old_network_info = monitor.m_tiny_old_network_info;
    decltype(monitor.m_old_network_info)& proc_old_network_info = monitor.m_proc_old_network_info;
    decltype(monitor.m_cpu_core_name)& cpu_core_name = monitor.m_cpu_core_name;
    decltype(monitor.m_old_cpu_info)& old_cpu_info = monitor.m_old_cpu_info;
    decltype(monitor.m_old_cpu_info)& old_tiny_cpu_info = monitor.m_old_tiny_cycle_cpu_info;
    decltype(monitor.m_old_disk_io_info)& old_disk_io_info = monitor.m_old_disk_io_info;
    decltype(monitor.m_dir_to_disk_map)& dir_to_disk_map = monitor.m_dir_to_disk_map;
    decltype(monitor.m_raid_to_disk_map)& raid_to_disk_map = monitor.m_raid_to_disk_map;
};

}  // namespace CorvaneCommon

namespace corvane_test {
using Monitor = CorvaneCommon::MonitorPhysicalUtilTestPeer;
}
