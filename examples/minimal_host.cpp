// The smallest host: how busy was this machine for a second, and how full is its memory?
#include <unistd.h>

#include <cstdio>

#include "monitor_physical_util.h"

int main() {
    auto* const monitor = CorvaneCommon::CMonitorPhysicalUtil::GetInstance();
    CorvaneCommon::CPUInfoResult cpu;
    CorvaneCommon::MemoryInfo memory;
    sleep(1);
    if (monitor->CalcCPUMonitorInfo(true, nullptr) != 0 ||
        monitor->GetCPUMonitorInfo(&cpu, nullptr) != 0 ||
        monitor->GetMemoryMonitorInfo(&memory, nullptr) != 0) {
        return 1;
    }
    std::printf("CPU %u of %u %%, memory %lu of %lu MiB\n", cpu.cpu_utilization,
                100 * cpu.cpu_core_num, memory.use_mb, memory.total_mb);
}
