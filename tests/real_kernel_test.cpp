// The CPU of this machine's own kernel, by both readings.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include "monitor_test_peer.h"

namespace corvane_test {
namespace {

double SecondsOf(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Without what the hypervisor took of each core; that is in no figure of the machine.
double SecondsOfTheMachine() {
    std::ifstream stat("/proc/stat");
    std::string column;
    for (int i = 0; i < 9; ++i) {
        stat >> column;
    }
    const auto ticks = static_cast<double>(sysconf(_SC_CLK_TCK) * sysconf(_SC_NPROCESSORS_ONLN));
    return SecondsOf(CLOCK_MONOTONIC) - std::stod(column) / ticks;
}

TEST(Real, MachineAndProcessWithABusyThreadAmongSomeThatComeAndGo) {
    constexpr double TOLERANCE = 5.0;  // percent of one core
    auto& used = *new (mmap(nullptr, sizeof(std::atomic<double>), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<double>(0);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        std::thread([] {
            for (;; usleep(2000)) {
                std::thread([] {}).join();
            }
        }).detach();
        for (;; usleep(6000)) {  // 70 percent of a core
            for (const double stop = SecondsOf(CLOCK_THREAD_CPUTIME_ID) + 0.014; used < stop;) {
                used = SecondsOf(CLOCK_THREAD_CPUTIME_ID);
            }
        }
    }
    clockid_t clock = 0;
    clock_getcpuclockid(child, &clock);
    const auto now = [&] {
        return std::array{SecondsOfTheMachine(), SecondsOf(clock), used.load()};
    };
    const auto pid = static_cast<uint32_t>(child);
    Monitor monitors[2];
    monitors[1]->SetStrictReading(true, nullptr);
    const auto pass = [&] {
        for (Monitor& monitor : monitors) {
            EXPECT_EQ(monitor->CalcProcessCPUMonitorInfo(pid, nullptr, true), 0);
            EXPECT_EQ(monitor->CalcProcessCPUMonitorInfoForTinyCycle(pid, nullptr), 0);
            EXPECT_EQ(monitor->CalcCPUMonitorInfoForTinyCycle(true, nullptr), 0);
        }
    };
    pass();
    pass();
    const auto start = now();
    usleep(2000000);
    pass();
    const auto stop = now();
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    for (Monitor& monitor : monitors) {
        int32_t process[2] = {};
        int32_t thread[2] = {};
        monitor->GetProcessCPUMonitorInfo(process[0], pid, nullptr);
        monitor->GetProcessMaxThreadCPUMonitorInfo(thread[0], pid, nullptr);
        monitor->GetProcessCPUMonitorInfoForTinyCycle(process[1], thread[1], pid, nullptr);
        for (const int cycle : {0, 1}) {
            EXPECT_NEAR(process[cycle], 100 * (stop[1] - start[1]) / (stop[0] - start[0]),
                        TOLERANCE);
            EXPECT_NEAR(thread[cycle], 100 * (stop[2] - start[2]) / (stop[0] - start[0]),
                        TOLERANCE);
        }
        CorvaneCommon::CPUInfoResult machine;
        monitor->GetCPUMonitorInfoForTinyCycle(&machine, nullptr);
        EXPECT_EQ(machine.cpu_core_num, static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
        EXPECT_GE(machine.cpu_utilization + TOLERANCE, process[1]);
        EXPECT_LE(machine.cpu_utilization, 100U * machine.cpu_core_num);
    }
}

}  // namespace
}  // namespace corvane_test
