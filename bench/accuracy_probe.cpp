// Prints the monitor's figures for one interval, one "name value" a line, for the script accuracy.
//
//   accuracy_probe SECONDS [--strict] [--pid PID] [--directory PATH]
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "monitor_physical_util.h"

namespace {

using CorvaneCommon::CMonitorPhysicalUtil;

void Print(const char* name, uint64_t value) {
    printf("%s %lu\n", name, value);
}

void PrintProcess(CMonitorPhysicalUtil& monitor, uint32_t pid) {
    int32_t cpu = 0;
    int32_t busiest_thread = 0;
    monitor.GetProcessCPUMonitorInfo(cpu, pid, nullptr);
    monitor.GetProcessMaxThreadCPUMonitorInfo(busiest_thread, pid, nullptr);
    printf("process_cpu %d\nbusiest_thread %d\n", cpu, busiest_thread);
    CorvaneCommon::ProcessMemoryInfo memory;
    monitor.GetProcessMemoryMonitorInfo(&memory, pid, nullptr);
    Print("process_physical_mb", memory.physical_memory_mb);
    Print("process_virtual_mb", memory.virtual_memory_mb);
}

void PrintDirectory(CMonitorPhysicalUtil& monitor, const char* directory) {
    CorvaneCommon::DiskIOInfoResult disk;
    monitor.GetDiskIOMonitorInfo(&disk, directory, nullptr);
    printf("disk_name %s\n", disk.disk_name);
    Print("disk_io_rate", disk.disk_io_rate);
    Print("disk_iops", disk.disk_iops);
    CorvaneCommon::DiskInfoResult space;
    monitor.GetDiskMonitorInfo(&space, directory, nullptr);
    Print("disk_total_mb", space.total_mb);
    Print("disk_use_mb", space.use_mb);
}

/// The busiest interface of each direction, with what the strict reading knows below a megabit.
void PrintTraffic(const std::vector<CorvaneCommon::NetworkInterfaceInfo>& interfaces) {
    constexpr double BYTES_PER_MEGABIT = 1e6 / 8;
    uint64_t in = 0;
    uint64_t out = 0;
    for (const CorvaneCommon::NetworkInterfaceInfo& interface : interfaces) {
        in = std::max(in, interface.input_bytes);
        out = std::max(out, interface.output_bytes);
    }
    printf("network_in_mbit %.2f\n", static_cast<double>(in) / BYTES_PER_MEGABIT);
    printf("network_out_mbit %.2f\n", static_cast<double>(out) / BYTES_PER_MEGABIT);
}

void PrintMachine(CMonitorPhysicalUtil& monitor) {
    CorvaneCommon::CPUInfoResult cpu;
    monitor.GetCPUMonitorInfo(&cpu, nullptr);
    Print("cpu", cpu.cpu_utilization);
    Print("cores", cpu.cpu_core_num);
    CorvaneCommon::MemoryInfo memory;
    monitor.GetMemoryMonitorInfo(&memory, nullptr);
    Print("memory_total_mb", memory.total_mb);
    Print("memory_use_mb", memory.use_mb);
    std::vector<CorvaneCommon::NetworkInterfaceInfo> interfaces;
    if (monitor.GetNetworkInterfaceInfo(interfaces, nullptr) == 0) {
        PrintTraffic(interfaces);
        return;
    }
    CorvaneCommon::NetworkInfoResult network;
    monitor.GetNetworkMonitorInfo(&network, nullptr);
    Print("network_in_mbit", network.input_bytes_mb);
    Print("network_out_mbit", network.output_bytes_mb);
}

}  // namespace

int main(int argc, char** argv) {
    const char* directory = nullptr;
    uint32_t pid = 0;
    const int seconds = argc > 1 ? atoi(argv[1]) : 0;
    bool strict = false;
    for (int i = 2; i < argc; ++i) {
        if (strcmp(argv[i], "--strict") == 0) {
            strict = true;
        } else if (strcmp(argv[i], "--pid") == 0 && i + 1 < argc) {
            pid = static_cast<uint32_t>(atoi(argv[++i]));
        } else if (strcmp(argv[i], "--directory") == 0 && i + 1 < argc) {
            directory = argv[++i];
        }
    }
    if (seconds <= 0) {
        fprintf(stderr,
                "usage: accuracy_probe SECONDS [--strict] [--pid PID] [--directory PATH]\n");
        return 2;
    }
    CMonitorPhysicalUtil& monitor = *CMonitorPhysicalUtil::GetInstance();
    if (strict) {
        monitor.SetStrictReading(true, nullptr);
    }
    if (directory != nullptr) {
        monitor.SetDiskInfo(&directory, 1, nullptr);
    }
    if (pid != 0) {
        // Two passes prime a process: the machine's sample, then its own.
        monitor.CalcProcessCPUMonitorInfo(pid, nullptr, true);
        monitor.CalcProcessCPUMonitorInfo(pid, nullptr, true);
    }
    sleep(static_cast<unsigned>(seconds));
    const auto interval = static_cast<uint64_t>(seconds);
    monitor.CalcCPUMonitorInfo(true, nullptr);
    monitor.CalcNetworkMonitorInfo(interval, true, nullptr);
    if (pid != 0) {
        monitor.CalcProcessCPUMonitorInfo(pid, nullptr, true);
    }
    if (directory != nullptr) {
        monitor.CalcDiskIOMonitorInfo(directory, interval, true, nullptr);
        PrintDirectory(monitor, directory);
    }
    if (pid != 0) {
        PrintProcess(monitor, pid);
    }
    PrintMachine(monitor);
    return 0;
}
