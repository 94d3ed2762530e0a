// This machine's own kernel: one check for each source.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
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
    Monitor monitor;
    const auto pass = [&] {
        EXPECT_EQ(monitor->CalcProcessCPUMonitorInfo(pid, nullptr, true), 0);
        EXPECT_EQ(monitor->CalcProcessCPUMonitorInfoForTinyCycle(pid, nullptr), 0);
        EXPECT_EQ(monitor->CalcCPUMonitorInfoForTinyCycle(true, nullptr), 0);
    };
    pass();
    pass();
    const auto start = now();
    usleep(2000000);
    pass();
    const auto stop = now();
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    int32_t process[2] = {};
    int32_t thread[2] = {};
    monitor->GetProcessCPUMonitorInfo(process[0], pid, nullptr);
    monitor->GetProcessMaxThreadCPUMonitorInfo(thread[0], pid, nullptr);
    monitor->GetProcessCPUMonitorInfoForTinyCycle(process[1], thread[1], pid, nullptr);
    for (const int cycle : {0, 1}) {
        EXPECT_NEAR(process[cycle], 100 * (stop[1] - start[1]) / (stop[0] - start[0]), TOLERANCE);
        EXPECT_NEAR(thread[cycle], 100 * (stop[2] - start[2]) / (stop[0] - start[0]), TOLERANCE);
    }
    CorvaneCommon::CPUInfoResult machine;
    monitor->GetCPUMonitorInfoForTinyCycle(&machine, nullptr);
    EXPECT_EQ(machine.cpu_core_num, static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_GE(machine.cpu_utilization + TOLERANCE, process[1]);
    EXPECT_LE(machine.cpu_utilization, 100U * machine.cpu_core_num);
}

TEST(Real, Memory) {
    CorvaneCommon::MemoryInfo memory;
    CorvaneCommon::ProcessMemoryInfo own;
    Monitor monitor;
    const auto pid = static_cast<uint32_t>(getpid());
    ASSERT_EQ(monitor->GetMemoryMonitorInfo(&memory, nullptr), 0);
    ASSERT_EQ(monitor->GetProcessMemoryMonitorInfo(&own, pid, nullptr), 0);
    const auto page = static_cast<double>(sysconf(_SC_PAGESIZE)) / 1048576;
    const auto pages = static_cast<double>(sysconf(_SC_PHYS_PAGES));
    EXPECT_NEAR(static_cast<double>(memory.total_mb), pages * page, 1.0);
    EXPECT_GT(memory.use_mb, own.physical_memory_mb);
    EXPECT_LT(memory.use_mb, memory.total_mb);
    double virtual_pages = 0;
    std::ifstream("/proc/self/statm") >> virtual_pages;
    EXPECT_NEAR(static_cast<double>(own.virtual_memory_mb), virtual_pages * page, 2.0);
}

// Everybody has a loopback interface. It is not discovered, but its line is read as any other's.
TEST(Real, DatagramsShowInAnInterfacesCounters) {
    constexpr uint64_t COUNT = 1000;
    constexpr uint64_t SIZE = 1000;
    Monitor monitor;
    CorvaneCommon::NetworkInfo before;
    CorvaneCommon::NetworkInfo after;
    const sockaddr_in address = {AF_INET, htons(9), {htonl(INADDR_LOOPBACK)}, {}};
    const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const std::string data(SIZE - 28, 'x');  // with the headers of UDP and IP
    const auto send = [&] {
        return sendto(sender, data.data(), data.size(), 0,
                      reinterpret_cast<const sockaddr*>(&address), sizeof(address)) > 0;
    };
    if (!send() || monitor.GetNetworkInfo(&before, "lo", nullptr) != 0) {
        GTEST_SKIP() << "no loopback interface here that is up";
    }
    for (uint64_t sent = 0; sent < COUNT;) {
        sent += send() ? 1U : 0U;  // fails once for each answer that nobody listens
    }
    close(sender);
    ASSERT_EQ(monitor.GetNetworkInfo(&after, "lo", nullptr), 0);
    for (const auto& [bytes, packets] : {std::pair(after.input_bytes - before.input_bytes,
                                                   after.input_packets - before.input_packets),
                                         {after.output_bytes - before.output_bytes,
                                          after.output_packets - before.output_packets}}) {
        EXPECT_GE(bytes, COUNT * SIZE);  // other traffic only adds
        EXPECT_GE(packets, COUNT);
        EXPECT_LE(packets, 10 * COUNT);
    }
}

TEST(Real, WritesShowInTheirFoldersDisk) {
    Monitor monitor;
    const char* folders[] = {"."};
    char disk[CorvaneCommon::MONITOR_NAME_LENGTH] = {};
    if (monitor->SetDiskInfo(folders, 1, nullptr) != 0 ||
        monitor->GetDiskNameByFileName(disk, sizeof(disk), ".", nullptr) != 0) {
        GTEST_SKIP() << "no mount table here that knows the current folder";
    }
    // Past the page cache, into a file that has no name to leave behind.
    const int file = open(".", O_TMPFILE | O_WRONLY | O_CLOEXEC | O_DIRECT, 0600);
    alignas(4096) static char block[65536];
    if (monitor->CalcDiskIOMonitorInfo(".", 1, true, nullptr) != 0 ||
        pwrite(file, block, sizeof(block), 0) < 0 ||
        access((std::string("/sys/class/block/") + disk).c_str(), F_OK) != 0) {
        GTEST_SKIP() << "the current folder is on no disk, or takes no direct writes";
    }
    uint32_t written = 0;
    for (const double end = SecondsOf(CLOCK_MONOTONIC) + 1; SecondsOf(CLOCK_MONOTONIC) < end;) {
        written += pwrite(file, block, sizeof(block), 0) > 0 ? 1U : 0U;
    }
    close(file);
    ASSERT_EQ(monitor->CalcDiskIOMonitorInfo(".", 1, true, nullptr), 0);
    CorvaneCommon::DiskIOInfoResult result;
    ASSERT_EQ(monitor->GetDiskIOMonitorInfo(&result, ".", nullptr), 0);
    EXPECT_GE(result.disk_iops, written);  // other work on the disk only adds
    EXPECT_GE(result.disk_io_rate, 5U);
    EXPECT_LE(result.disk_io_rate, 100U);
}

}  // namespace
}  // namespace corvane_test
