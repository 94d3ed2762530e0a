// Memory of the machine and of a process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "capturing_log.h"
#include "corvane_error_code.h"
#include "fake_kernel.h"
#include "monitor_test_peer.h"

namespace corvane_test {
namespace {

using testing::ElementsAre;

const std::string MEMINFO =
    "MemTotal:        1000000 kB\nMemFree:          200000 kB\nMemAvailable:     500000 kB\n"
    "Buffers:           50000 kB\nCached:           300000 kB\nSwapCached:            7 kB\n"
    "Shmem:             10000 kB\nShmemHugePages:        9 kB\n";

std::string Without(std::string text, const std::string& key) {
    const size_t start = text.find(key);
    return text.erase(start, text.find('\n', start) + 1 - start);
}

std::string CutBehind(const std::string& text, const std::string& key) {
    return text.substr(0, text.find('\n', text.find(key)));
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

TEST(Memory, InUseCountsSharedMemory) {
    struct Case {
        std::string text;
        uint64_t total_mb;
        uint64_t use_mb;
    };
    const Case cases[] = {
        {MEMINFO, 976, 449},
        {Without(MEMINFO, "MemAvailable"), 976, 449},
        {"MemTotal: 1023 kB\nMemFree: 0 kB\nBuffers: 0 kB\nCached: 0 kB\nShmem: 0 kB\n", 0, 0},
        // More free than there is: the difference wraps.
        {"MemTotal: 0 kB\nMemFree: 1024 kB\nBuffers: 0 kB\nCached: 0 kB\nShmem: 0 kB\n", 0,
         UINT64_MAX >> 10},
        // More digits than 64 bits hold read as the largest number.
        {Replaced(MEMINFO, "1000000", "1000000000000000000000000"), UINT64_MAX >> 10,
         (UINT64_MAX - 540000) >> 10},
    };
    FakeKernel kernel;
    Monitor monitor;
    for (const Case& c : cases) {
        kernel.Write("/proc/meminfo", c.text);
        CorvaneCommon::MemoryInfo memory;
        EXPECT_EQ(monitor->GetMemoryMonitorInfo(&memory, nullptr), 0) << c.text;
        EXPECT_EQ(memory.total_mb, c.total_mb) << c.text;
        EXPECT_EQ(memory.use_mb, c.use_mb) << c.text;
    }
}

TEST(Memory, FaultsOfTheMachinesFile) {
    struct Case {
        std::string text;
        int32_t status;
        std::string record;
        uint64_t total_left;
    };
    const std::string total_only = "MemTotal:        1000000 kB";
    const Case cases[] = {
        {"", COMMON_ERR_INVALID_ARGUMENTS, " Can not find MemTotal.", 0},
        {total_only, COMMON_ERR_INVALID_ARGUMENTS, total_only + " Can not find \\n after MemTotal.",
         0},
        {"MemTotal: none\n", COMMON_ERR_LINUX_SYSTEM_CALL_FAIL,
         "sscanf failed, file: /proc/meminfo, buf: MemTotal: none.", 0},
        {"MemTotal:10373888 kB\n", COMMON_ERR_LINUX_SYSTEM_CALL_FAIL,
         "sscanf failed, file: /proc/meminfo, buf: MemTotal:10373888 kB.", 0},
        {Without(MEMINFO, "MemFree"), COMMON_ERR_INVALID_ARGUMENTS,
         total_only + " Can not find MemFree.", 1000000},
        {CutBehind(MEMINFO, "MemFree"), COMMON_ERR_INVALID_ARGUMENTS,
         total_only + " Can not find \\n after MemFree.", 1000000},
        {Replaced(MEMINFO, "200000", "-"), COMMON_ERR_LINUX_SYSTEM_CALL_FAIL,
         "sscanf failed, file: /proc/meminfo, buf: " + total_only + ".", 1000000},
        {Without(MEMINFO, "Buffers"), COMMON_ERR_INVALID_ARGUMENTS,
         total_only + " Can not find Cached.", 1000000},
        {CutBehind(MEMINFO, "Buffers"), COMMON_ERR_INVALID_ARGUMENTS,
         total_only + " Can not find \\n after Cached.", 1000000},
        {CutBehind(MEMINFO, "Cached"), COMMON_ERR_INVALID_ARGUMENTS,
         total_only + " Can not find \\n after Cached.", 1000000},
        {Without(Without(MEMINFO, "ShmemHuge"), "Shmem:"), COMMON_ERR_INVALID_ARGUMENTS,
         total_only + " Can not find Cached.", 1000000},
        {CutBehind(MEMINFO, "Shmem:"), COMMON_ERR_INVALID_ARGUMENTS,
         total_only + " Can not find \\n after Cached.", 1000000},
        {std::string(50000, 'x') + MEMINFO, COMMON_ERR_INVALID_ARGUMENTS,
         std::string(40959, 'x') + " Can not find MemTotal.", 0},
    };
    FakeKernel kernel;
    Monitor monitor;
    for (const Case& c : cases) {
        kernel.Write("/proc/meminfo", c.text);
        CapturingLog log;
        CorvaneCommon::MemoryInfo memory;
        memory.use_mb = 5;
        EXPECT_EQ(monitor->GetMemoryMonitorInfo(&memory, &log), c.status) << c.record;
        EXPECT_THAT(
            log.TakeTexts(),
            ElementsAre(c.record, "GetMemoryInfo failed, ret: " + std::to_string(c.status) + "."));
        EXPECT_EQ(memory.total_mb, c.total_left) << c.record;
        EXPECT_EQ(memory.use_mb, 0U) << c.record;
    }
}

TEST(ProcessMemory, FiguresAndFaults) {
    struct Case {
        std::string text;
        int32_t status;
        std::string record;
        uint64_t virtual_left;
        uint64_t physical_left;
    };
    const std::string size_line = "VmSize:\t  204800 kB";
    const Case cases[] = {
        {"Name:\tsrv\n" + size_line + "\nVmLck:\t0 kB\nVmRSS:\t   10241 kB\n", 0, "", 200, 10},
        // A kernel thread.
        {"Name:\tkthreadd\n", COMMON_ERR_INVALID_ARGUMENTS,
         "Name:\tkthreadd\n Can not find VmSize.", 0, 0},
        {size_line, COMMON_ERR_INVALID_ARGUMENTS, size_line + " Can not find \\n after VmSize.", 0,
         0},
        {size_line + "\n", COMMON_ERR_INVALID_ARGUMENTS, size_line + " Can not find VmRSS.", 204800,
         0},
        {size_line + "\nVmRSS: 3 kB", COMMON_ERR_INVALID_ARGUMENTS,
         size_line + " Can not find \\n after VmRSS.", 204800, 0},
        {size_line + "\nVmRSS: kB\n", COMMON_ERR_LINUX_SYSTEM_CALL_FAIL,
         "sscanf failed, file: /proc/9/status, buf: " + size_line + ".", 204800, 0},
        // A process chooses its own name, and the name's line comes first.
        {"Name:\tVmSize\n" + size_line + "\nVmRSS: 3 kB\n", COMMON_ERR_LINUX_SYSTEM_CALL_FAIL,
         "sscanf failed, file: /proc/9/status, buf: Name:\tVmSize.", 0, 0},
        {"Name:\tVmSize 7168\n" + size_line + "\nVmRSS: 3072 kB\n", 0, "", 7, 3},
    };
    FakeKernel kernel;
    Monitor monitor;
    for (const Case& c : cases) {
        kernel.Write("/proc/9/status", c.text);
        CapturingLog log;
        CorvaneCommon::ProcessMemoryInfo memory;
        memory.virtual_memory_mb = memory.physical_memory_mb = 5;
        EXPECT_EQ(monitor.GetProcessMemoryInfo(&memory, 9U, &log), c.status) << c.text;
        EXPECT_EQ(memory.virtual_memory_mb, c.virtual_left) << c.text;
        EXPECT_EQ(memory.physical_memory_mb, c.physical_left) << c.text;
        if (c.status != 0) {
            EXPECT_THAT(log.TakeTexts(), ElementsAre(c.record));
        }
    }
}

TEST(ProcessMemory, ChecksItsArgumentsInOrder) {
    FakeKernel kernel(KernelFiles{{"/proc/9/status", ""}});
    Monitor monitor;
    CapturingLog log;
    CorvaneCommon::ProcessMemoryInfo memory;
    EXPECT_EQ(monitor->GetProcessMemoryMonitorInfo(nullptr, 9, &log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor->GetProcessMemoryMonitorInfo(&memory, 0, &log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(kernel.Count(KernelCall::Access), 0);
    EXPECT_EQ(monitor->GetProcessMemoryMonitorInfo(&memory, 8, &log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor.GetProcessMemoryInfo(&memory, 0U, &log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor->GetProcessMemoryMonitorInfo(&memory, 9, &log), COMMON_ERR_INVALID_ARGUMENTS);
    kernel.Fail(KernelCall::Open, 1, ESRCH);  // it ended since
    EXPECT_EQ(monitor->GetProcessMemoryMonitorInfo(&memory, 9, &log),
              COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_EQ(monitor.GetMemoryInfo(nullptr, &log), COMMON_ERR_INVALID_ARGUMENTS);
    using testing::EndsWith;
    using testing::StartsWith;
    EXPECT_THAT(log.TakeTexts(),
                ElementsAre("process_memory_info is NULL or 0>= pid or pid not exist, "
                            "process_memory_info: (nil), pid: 9.",
                            EndsWith(", pid: 0."), EndsWith(", pid: 8."),
                            StartsWith("process_memory_info is NULL or 0>= pid, process_memory"),
                            " Can not find VmSize.", "GetProcessMemoryInfo failed, ret: -281.",
                            "fopen /proc/9/status failed, error_msg: No such process.",
                            "ReadFromFile failed, file: /proc/9/status.",
                            "GetProcessMemoryInfo failed, ret: -3353.", "memory_info is NULL."));
}

TEST(Memory, AgreesWithThisMachine) {
    CorvaneCommon::MemoryInfo memory;
    CorvaneCommon::ProcessMemoryInfo own;
    Monitor monitor;
    ASSERT_EQ(monitor->GetMemoryMonitorInfo(&memory, nullptr), 0);
    ASSERT_EQ(monitor->GetProcessMemoryMonitorInfo(&own, static_cast<uint32_t>(getpid()), nullptr),
              0);
    const auto physical_mb = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                                 static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) >>
                             20;
    EXPECT_NEAR(static_cast<double>(memory.total_mb), static_cast<double>(physical_mb), 1.0);
    EXPECT_GT(memory.use_mb, own.physical_memory_mb);
    EXPECT_LT(memory.use_mb, memory.total_mb);
    uint64_t virtual_pages = 0;
    std::ifstream("/proc/self/statm") >> virtual_pages;
    EXPECT_NEAR(
        static_cast<double>(own.virtual_memory_mb),
        static_cast<double>(virtual_pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) >> 20),
        2.0);
}

}  // namespace
}  // namespace corvane_test
