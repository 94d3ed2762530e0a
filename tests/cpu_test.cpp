// CPU of the machine and its cores.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "capturing_log.h"
#include "corvane_error_code.h"
#include "fake_kernel.h"
#include "kernel_texts.h"
#include "monitor_physical_util_internal.h"
#include "monitor_test_peer.h"
#include "replay.h"

namespace corvane_test {
namespace {

using CorvaneCommon::CPUInfo;
using CorvaneCommon::CPUInfoResult;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* STAT = "/proc/stat";
constexpr const char* REINIT = "maybe cpu changed, reinit cpu info.";

std::string Missing(const std::string& core) {
    return "(null) Can not find " + core + ", maybe cpu changed, reinit cpu info.";
}

KernelFiles Stat(const std::vector<Core>& cores) {
    return {{STAT, StatText(cores)}};
}

CPUInfo Sample(uint64_t user, uint64_t idle, uint64_t iowait = 0) {
    CPUInfo sample;
    sample.user = user;
    sample.idle = idle;
    sample.iowait = iowait;
    return sample;
}

TEST(CeilQuotient, OutOfRangeIsTheMinimum) {
    using CorvaneCommon::CeilQuotient;
    EXPECT_EQ(CeilQuotient<int32_t>(INT32_MAX, 1), INT32_MAX);
    EXPECT_EQ(CeilQuotient<int32_t>(INT32_MAX + uint64_t{1}, 1), INT32_MIN);
    EXPECT_EQ(CeilQuotient<int64_t>(uint64_t{1} << 62, 1), int64_t{1} << 62);
    EXPECT_EQ(CeilQuotient<int64_t>(uint64_t{1} << 63, 1), INT64_MIN);
    EXPECT_EQ(CeilQuotient<int64_t>(401, 400), 2);
}

TEST(CalcCPUInfo, BusyShareIsRoundedUp) {
    struct Case {
        const char* what;
        CPUInfo before;
        CPUInfo now;
        uint32_t percent;
    };
    const Case cases[] = {
        {"no tick elapsed", Sample(5, 5), Sample(5, 5), 0},
        {"1 of 1000", Sample(0, 0), Sample(1, 999), 1},
        {"999 of 1000", Sample(0, 0), Sample(999, 1), 100},
        {"half", Sample(100, 100), Sample(150, 150), 50},
        {"only iowait", Sample(1, 1, 1), Sample(1, 1, 101), 0},
        {"iowait is no busy time", Sample(0, 0, 0), Sample(50, 0, 50), 50},
        {"idle fell: more busy than elapsed", Sample(0, 100), Sample(20, 90), 200},
        {"user fell by 1 of 101: the product wraps", Sample(10, 0), Sample(9, 101),
         static_cast<uint32_t>(184467440737095520)},
        {"all fell: elapsed wraps, too", Sample(50, 50), Sample(0, 0), 1},
        {"a quotient beyond 63 bits", Sample(1, 0), Sample(0, 2), 0},
    };
    const FakeKernel kernel;
    Monitor monitor;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        monitor.old_cpu_info["cpu0"] = c.before;
        CPUInfo now = c.now;
        uint32_t percent = 12345;
        EXPECT_EQ(
            monitor.CalcCPUInfo(percent, "cpu0", monitor.old_cpu_info, &now, false, false, nullptr),
            0);
        EXPECT_EQ(percent, c.percent);
        EXPECT_EQ(monitor.old_cpu_info["cpu0"].user, c.before.user);
    }
}

TEST(CalcCPUInfo, PeaksAndBaselines) {
    const FakeKernel kernel;
    Monitor monitor;
    auto& stored = monitor.old_cpu_info["cpu0"];
    stored = Sample(0, 0);
    CPUInfo now = Sample(80, 20);
    uint32_t percent = 0;
    monitor.CalcCPUInfo(percent, "cpu0", monitor.old_cpu_info, &now, false, true, nullptr);
    EXPECT_EQ(percent, 80U);
    EXPECT_EQ(stored.max_cpu_utilization, 80U);  // raised without refresh
    EXPECT_EQ(stored.user, 0U);
    now = Sample(30, 70);
    monitor.CalcCPUInfo(percent, "cpu0", monitor.old_cpu_info, &now, true, true, nullptr);
    EXPECT_EQ(percent, 80U);
    EXPECT_EQ(stored.max_cpu_utilization, 80U);
    EXPECT_EQ(stored.user, 30U);
    now = Sample(40, 160);
    monitor.CalcCPUInfo(percent, "cpu0", monitor.old_cpu_info, &now, true, false, nullptr);
    EXPECT_EQ(percent, 10U);
    EXPECT_EQ(stored.max_cpu_utilization, 10U);  // the normal cycle overwrites it

    CapturingLog log;
    EXPECT_EQ(monitor.CalcCPUInfo(percent, "cpu7", monitor.old_cpu_info, &now, true, false, &log),
              COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE);
    EXPECT_EQ(percent, 0U);
    EXPECT_EQ(monitor.old_cpu_info.count("cpu7"), 0U);
    EXPECT_EQ(monitor.CalcCPUInfo(percent, "", monitor.old_cpu_info, &now, true, false, &log),
              COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_THAT(log.TakeTexts(),
                ElementsAre("can not get old cpu info, cpu_core_name: cpu7.",
                            testing::StartsWith("now_cpu_info is NULL or cpu_core_name is NULL or "
                                                "cpu_core_name's length is 0, cpu_core_name: 0x")));
}

TEST(Discovery, StoresTheMachinesLineButDoesNotListIt) {
    const FakeKernel kernel(Stat({{"cpu0", 1, 2}, {"cpu2", 3, 4}, {"cpu10", 5, 6}}));
    Monitor monitor;
    EXPECT_THAT(monitor.cpu_core_name, ElementsAre("cpu0", "cpu2", "cpu10"));
    for (const auto* const samples : {&monitor.old_cpu_info, &monitor.old_tiny_cycle_cpu_info}) {
        ASSERT_EQ(samples->size(), 4U);
        EXPECT_EQ(samples->at("cpu").user, 9U);
        EXPECT_EQ(samples->at("cpu10").idle, 6U);
    }
}

TEST(Discovery, Faults) {
    struct Case {
        std::string text;
        int32_t status;
        std::vector<std::string> cores;
        std::vector<std::string> records;
    };
    std::string endless = CPULine("cpu", 1, 1);
    for (int i = 0; i < 5000; ++i) {
        endless += CPULine("cpu" + std::to_string(i), 1, 1);
    }
    const Case cases[] = {
        {"", 0, {}, {}},
        {"intr 1\n", 0, {}, {}},
        {"cpu0 1 2 3 4 5 6 7", 0, {"cpu0"}, {}},  // an old kernel's columns, and no newline
        {"cpu0 1 2 3 4 5 6 7\ncpu1 1 2 3\ncpu2 1 2 3 4 5 6 7\n",
         COMMON_ERR_LINUX_SYSTEM_CALL_FAIL,
         {"cpu0"},
         {"sscanf failed, buf: cpu1 1 2 3"}},
        {"the cpus\n", COMMON_ERR_LINUX_SYSTEM_CALL_FAIL, {}, {"sscanf failed, buf: the cpus"}},
        {std::string(3000, 'c') + "cpu 1 2 3 4 5 6 7\n",
         COMMON_ERR_LINUX_SYSTEM_CALL_FAIL,
         {},
         {"sscanf failed, buf: " + std::string(3000, 'c') + "cpu 1 2 3 4 5 6 7"}},
    };
    FakeKernel kernel;
    Monitor monitor;
    CapturingLog log;
    for (const Case& c : cases) {
        kernel.Write("/proc/stat", c.text);
        EXPECT_EQ(monitor.InitDefaultCPUInfo(&log), c.status) << c.text;
        EXPECT_EQ(monitor.cpu_core_name, c.cores) << c.text;
        EXPECT_EQ(log.TakeTexts(), c.records);
    }
    kernel.Write("/proc/stat", endless);
    EXPECT_EQ(monitor.InitDefaultCPUInfo(&log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor.cpu_core_name.size(), 4096U);
    EXPECT_THAT(log.TakeTexts(), ElementsAre("maybe deadloop, m_cpu_core_name.size=4096"));

    kernel.Remove("/proc/stat");
    EXPECT_EQ(monitor.InitDefaultCPUInfo(&log), COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_THAT(monitor.cpu_core_name, IsEmpty());
    kernel.MakeFolder("/proc/stat");
    EXPECT_EQ(monitor.InitDefaultCPUInfo(&log), COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_THAT(
        log.TakeTexts(),
        ElementsAre("open /proc/stat failed, error_msg: No such file or directory.",
                    "getline from /proc/stat failed, the failbit is 1 and the badbit is 1"));
}

TEST(NormalCycle, CoresComeAndGo) {
    FakeKernel kernel(Stat({{"cpu0", 0, 0}, {"cpu1", 0, 0}}));
    Monitor monitor;
    const auto changed = COMMON_ERR_INVALID_ARGUMENTS;
    const std::string name_124(124, 'x');
    const std::string too_long = "the size of now_cpu_info.cpu_core_name is not enough, buf: cpu0";
    Replay(
        kernel,
        {{"both busy", Stat({{"cpu0", 90, 10}, {"cpu1", 70, 30}}), 0, {2, 160}, {}},
         {"load falls, the peak stays",
          Stat({{"cpu0", 100, 100}, {"cpu1", 70, 130}}),
          0,
          {2, 160},
          {}},
         {"cpu1 goes: both figures restart",
          Stat({{"cpu0", 100, 100}}),
          changed,
          {1, 0},
          {Missing("cpu1")}},
         {"one core left", Stat({{"cpu0", 150, 150}}), 0, {1, 50}, {}},
         {"cpu1 and cpu5 come",
          Stat({{"cpu0", 150, 150}, {"cpu1", 9, 9}, {"cpu5", 9, 9}}),
          changed,
          {3, 0},
          {REINIT}},
         {"three cores",
          Stat({{"cpu0", 160, 240}, {"cpu1", 29, 89}, {"cpu5", 39, 79}}),
          0,
          {3, 60},
          {}},
         {"the file is empty", {{STAT, ""}}, changed, {0, 0}, {Missing("cpu0")}},
         {"and stays so", {}, 0, {0, 0}, {}},
         {"a core is back", Stat({{"cpu0", 5, 5}}), changed, {1, 0}, {REINIT}},
         {"no line end",
          {{STAT, "cpu0 6 0 0 6 0 0 0"}},
          changed,
          {1, 0},
          {"cpu0 6 0 0 6 0 0 0 Can not find \\n after cpu0."}},
         {"no blank", {{STAT, "cpu0\n"}}, changed, {1, 0}, {too_long + "."}},
         {"no numbers",
          {{STAT, "cpu0 x\n"}},
          COMMON_ERR_LINUX_SYSTEM_CALL_FAIL,
          {1, 0},
          {"sscanf failed, file: /proc/stat, buf: cpu0 x."}},
         {"the longest name",
          {{STAT, "cpu0" + name_124.substr(1) + " 15 0 0 5 0 0 0\n"}},
          0,
          {1, 100},
          {}},
         {"a name too long",
          {{STAT, "cpu0" + name_124 + " 1 2\n"}},
          changed,
          {1, 100},
          {too_long + name_124 + " 1 2."}}},
        [&](LogCategory* log) { return monitor->CalcCPUMonitorInfo(true, log); },
        [&]() -> std::vector<uint64_t> {
            CPUInfoResult result;
            EXPECT_EQ(monitor->GetCPUMonitorInfo(&result, nullptr), 0);
            return {result.cpu_core_num, result.cpu_utilization};
        });
}

TEST(NormalCycle, ACoreWithoutASampleEndsThePassBehindTheOthers) {
    FakeKernel kernel(Stat({{"cpu0", 0, 0}, {"cpu1", 0, 0}}));
    Monitor monitor;
    monitor.old_cpu_info.erase("cpu1");
    kernel.Write(Stat({{"cpu0", 7, 0}, {"cpu1", 7, 0}}));
    CapturingLog log;
    EXPECT_EQ(monitor->CalcCPUMonitorInfo(true, &log), COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE);
    EXPECT_THAT(log.TakeTexts(),
                ElementsAre("can not get old cpu info, cpu_core_name: cpu1.",
                            "CalcCPUInfo failed, ret: -3609, cpu_core_name: cpu1."));
    EXPECT_EQ(monitor.old_cpu_info["cpu0"].user, 7U);
    CPUInfoResult result;
    monitor->GetCPUMonitorInfo(&result, nullptr);
    EXPECT_EQ(result.cpu_utilization, 0U);
}

TEST(NormalCycle, AGoneCoreIsMixedWithANewOneThatHoldsItsName) {
    FakeKernel kernel(Stat({{"cpu0", 0, 0}, {"cpu1", 0, 0}}));
    Monitor monitor;
    kernel.Write(Stat({{"cpu0", 0, 100}, {"cpu10", 40, 60}}));
    EXPECT_EQ(monitor->CalcCPUMonitorInfo(true, nullptr), 0);
    CPUInfoResult result;
    monitor->GetCPUMonitorInfo(&result, nullptr);
    EXPECT_EQ(result.cpu_utilization, 40U);
}

TEST(TinyCycle, FollowsTheLatestFigureOnItsOwnBaselines) {
    FakeKernel kernel(Stat({{"cpu0", 0, 0}}));
    Monitor monitor;
    const auto read = [&]() -> std::vector<uint64_t> {
        CPUInfoResult tiny;
        CPUInfoResult normal;
        EXPECT_EQ(monitor->GetCPUMonitorInfoForTinyCycle(&tiny, nullptr), 0);
        monitor->GetCPUMonitorInfo(&normal, nullptr);
        return {tiny.cpu_core_num, tiny.cpu_utilization, normal.cpu_utilization};
    };
    Replay(
        kernel,
        {{"busy", Stat({{"cpu0", 90, 10}}), 0, {1, 90, 0}, {}},
         {"idle", Stat({{"cpu0", 100, 100}}), 0, {1, 10, 0}, {}},
         {"gone", {{STAT, ""}}, COMMON_ERR_INVALID_ARGUMENTS, {0, 0, 0}, {Missing("cpu0")}},
         {"nothing to measure", {}, 0, {0, 0, 0}, {}}},
        [&](LogCategory* log) { return monitor->CalcCPUMonitorInfoForTinyCycle(true, log); }, read);
    kernel.Write(Stat({{"cpu0", 0, 0}}));
    EXPECT_EQ(monitor->CalcCPUMonitorInfo(true, nullptr), COMMON_ERR_INVALID_ARGUMENTS);
    Replay(
        kernel,
        {{"the same base twice", Stat({{"cpu0", 30, 70}}), 0, {1, 30, 0}, {}},
         {"the same base again", Stat({{"cpu0", 50, 50}}), 0, {1, 50, 0}, {}}},
        [&](LogCategory* log) { return monitor->CalcCPUMonitorInfoForTinyCycle(false, log); },
        read);
    EXPECT_EQ(monitor->CalcCPUMonitorInfo(true, nullptr), 0);
    EXPECT_THAT(read(), ElementsAre(1, 50, 50));
    EXPECT_EQ(monitor->ClearCPUPhasedCacheValueForTinyCycle(nullptr), 0);
    EXPECT_THAT(read(), ElementsAre(1, 0, 50));
    EXPECT_EQ(monitor->ClearCPUPhasedCacheValue(nullptr), 0);
    EXPECT_THAT(read(), ElementsAre(1, 0, 0));
    EXPECT_EQ(monitor.old_cpu_info["cpu0"].max_cpu_utilization, 0U);
}

TEST(OnDemand, MeasuresOneLineAgainstTheNormalBaseline) {
    FakeKernel kernel(Stat({{"cpu0", 0, 0}, {"cpu1", 0, 0}}));
    Monitor monitor;
    CapturingLog log;
    CPUInfoResult result;
    const auto percent = [&](const char* name, bool refresh) {
        EXPECT_EQ(monitor->GetCPUMonitorInfo(&result, name, refresh, &log), 0);
        return result.cpu_utilization;
    };
    kernel.Write(Stat({{"cpu0", 60, 40}, {"cpu1", 20, 80}}));
    EXPECT_EQ(percent("cpu", false), 40U);
    EXPECT_EQ(percent("cpu1", true), 20U);
    EXPECT_EQ(percent("cpu1", true), 20U);  // no tick since, but the line's peak stands
    EXPECT_EQ(result.cpu_core_num, 2U);
    EXPECT_EQ(monitor->CalcCPUMonitorInfo(true, nullptr), 0);
    EXPECT_EQ(percent("cpu1", false), 0U);  // the cycle has overwritten it
    EXPECT_THAT(log.TakeTexts(), IsEmpty());

    EXPECT_EQ(monitor->GetCPUMonitorInfo(&result, "cpu9", true, &log),
              COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(result.cpu_utilization, 0U);
    EXPECT_EQ(monitor->GetCPUMonitorInfo(&result, "intr", true, &log),
              COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    kernel.Write("/proc/stat", "cpu 1 2 3 4 5 6 7");
    EXPECT_EQ(monitor->GetCPUMonitorInfo(&result, "cpu", true, &log), COMMON_ERR_INVALID_ARGUMENTS);
    kernel.Write("/proc/stat", "cpu8 1 2 3 4 5 6 7\n");
    EXPECT_EQ(monitor->GetCPUMonitorInfo(&result, "cpu8", true, &log),
              COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE);
    kernel.Fail(KernelCall::Open, 1, EACCES);
    EXPECT_EQ(monitor->GetCPUMonitorInfo(&result, "cpu8", true, &log),
              COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_EQ(monitor->GetCPUMonitorInfo(&result, nullptr, true, &log),
              COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor->GetCPUMonitorInfo(nullptr, &log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor->GetCPUMonitorInfoForTinyCycle(nullptr, &log), COMMON_ERR_INVALID_ARGUMENTS);
    CPUInfo* const no_sample = nullptr;
    EXPECT_EQ(monitor.GetCPUInfo(no_sample, "cpu0", &log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor.GetRawCPUInfo(nullptr, 7U, &log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_THAT(
        log.TakeTexts(),
        ElementsAre(StatText({{"cpu0", 60, 40}, {"cpu1", 20, 80}}) +
                        " Can not find cpu9, maybe cpu changed, reinit cpu info.",
                    "GetCPUInfo failed, ret: -281, cpu_core_name: cpu9.",
                    "sscanf failed, file: /proc/stat, buf: intr 12345 0 0.",
                    "GetCPUInfo failed, ret: -3353, cpu_core_name: intr.",
                    "cpu 1 2 3 4 5 6 7 Can not find \\n after cpu.",
                    "GetCPUInfo failed, ret: -281, cpu_core_name: cpu.",
                    "can not get old cpu info, cpu_core_name: cpu8.",
                    "CalcCPUInfo failed, ret: -3609, cpu_core_name: cpu8.",
                    "fopen /proc/stat failed, error_msg: Permission denied.",
                    "ReadFromFile failed, file: /proc/stat.", "GetRawCPUInfo failed, ret: -3353.",
                    "GetCPUInfo failed, ret: -3353, cpu_core_name: cpu8.",
                    testing::StartsWith("cpu_core_name is NULL or cpu_core_name's length is 0 or "
                                        "cpu_info_result is NULL, cpu_core_name: (nil), cpu_info"),
                    "cpu_info_result is NULL.", "cpu_info_result is NULL.",
                    testing::StartsWith("cpu_core_name is NULL or cpu_core_name's length is 0 or "
                                        "now_cpu_info is NULL, cpu_core_name: 0x"),
                    "raw_cpu_info is NULL or raw_cpu_info_length is 0, raw_cpu_info: (nil), "
                    "raw_cpu_info_length: 7."));
}

TEST(BigMachines, MeasuredUpToTheBufferAndNeverBeyond) {
    for (const int cores : {256, 500, 1300}) {
        SCOPED_TRACE(cores);
        std::vector<Core> before;
        std::vector<Core> after;
        for (int i = 0; i < cores; ++i) {
            before.push_back({"cpu" + std::to_string(i), 100000, 100000});
            after.push_back({"cpu" + std::to_string(i), 100025, 100075});
        }
        FakeKernel kernel(Stat(before));
        Monitor monitor;
        kernel.Write(Stat(after));
        CPUInfoResult result;
        const int32_t status = monitor->CalcCPUMonitorInfo(true, nullptr);
        monitor->GetCPUMonitorInfo(&result, nullptr);
        EXPECT_EQ(result.cpu_core_num, static_cast<uint32_t>(cores));
        // 40959 characters hold 500 of these lines and more, but not 1300.
        EXPECT_EQ(status, cores <= 500 ? 0 : COMMON_ERR_INVALID_ARGUMENTS);
        EXPECT_EQ(result.cpu_utilization, cores <= 500 ? 25U * static_cast<uint32_t>(cores) : 0U);
    }
}

TEST(RealKernel, OneCoreBusyForHalfTheTimeShowsAsHalf) {
    Monitor monitor;
    ASSERT_EQ(monitor->CalcCPUMonitorInfo(true, nullptr), 0);
    monitor->ClearCPUPhasedCacheValue(nullptr);
    CPUInfoResult idle;
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_EQ(monitor->CalcCPUMonitorInfoForTinyCycle(true, nullptr), 0);
    monitor->GetCPUMonitorInfoForTinyCycle(&idle, nullptr);
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(2);
    while (Clock::now() < end) {
        const auto busy_until = Clock::now() + std::chrono::milliseconds(20);
        while (Clock::now() < busy_until) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    CPUInfoResult result;
    ASSERT_EQ(monitor->CalcCPUMonitorInfoForTinyCycle(true, nullptr), 0);
    ASSERT_EQ(monitor->GetCPUMonitorInfoForTinyCycle(&result, nullptr), 0);
    EXPECT_EQ(result.cpu_core_num, static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
    // Other work on the machine only adds; rounding adds up to one percent a core.
    EXPECT_GE(result.cpu_utilization, 45U);
    EXPECT_LE(result.cpu_utilization, 100U * result.cpu_core_num);
    if (idle.cpu_utilization < 10) {
        EXPECT_LE(result.cpu_utilization, 75U) << "on a machine that was idle before";
    }
}

}  // namespace
}  // namespace corvane_test
