// CPU of a process and of its busiest thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "capturing_log.h"
#include "corvane_error_code.h"
#include "fake_kernel.h"
#include "kernel_texts.h"
#include "monitor_test_peer.h"

namespace {
int64_t clock_us = 1999999;
int64_t clock_step_us = 0;  // what each look at the clock adds to it
}  // namespace

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" int gettimeofday(struct timeval* time, void* /*zone*/) noexcept {
    *time = {clock_us / 1000000, clock_us % 1000000};
    clock_us += clock_step_us;
    return 0;
}

namespace corvane_test {
namespace {

using CorvaneCommon::CPUInfo;
using CorvaneCommon::ProcessCPUInfo;
using testing::ElementsAre;
using Texts = std::vector<std::string>;
using Figures = std::vector<int32_t>;  // process and thread, normal cycle then tiny

constexpr uint32_t PID = 17;
constexpr const char* STAT = "/proc/17/stat";
constexpr auto FAILED = COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
constexpr auto WRONG = COMMON_ERR_INVALID_ARGUMENTS;

std::string ThreadStat(const std::string& tid) {
    return "/proc/17/task/" + tid + "/stat";
}

std::string Unparsed(const std::string& file, const std::string& text) {
    return "sscanf failed, file: " + file + ", buf: " + text.c_str() + ".";
}

/// A machine of four cores, a process and its only thread after so many ticks.
KernelFiles At(uint64_t machine, uint64_t process, uint64_t thread) {
    return {{"/proc/stat",
             StatText({{"cpu0", 0, machine}, {"cpu1", 0, 0}, {"cpu2", 0, 0}, {"cpu3", 0, 0}})},
            {STAT, ProcessStatText(PID, "srv", process, 0)},
            {ThreadStat("20"), ProcessStatText(20, "srv", 0, thread)}};
}

struct Step {
    const char* event;
    uint64_t machine;
    uint64_t process;
    uint64_t thread;
    Figures figures;
};

/// Both cycles side by side.
struct Machine {
    int32_t Pass() {
        const int32_t status = monitor->CalcProcessCPUMonitorInfo(PID, &log, true);
        EXPECT_EQ(monitor->CalcProcessCPUMonitorInfoForTinyCycle(PID, nullptr), status);
        return status;
    }
    Figures Read() {
        Figures f(4, -1);
        EXPECT_EQ(monitor->GetProcessCPUMonitorInfo(f[0], PID, &log), 0);
        EXPECT_EQ(monitor->GetProcessMaxThreadCPUMonitorInfo(f[1], PID, &log), 0);
        EXPECT_EQ(monitor->GetProcessCPUMonitorInfoForTinyCycle(f[2], f[3], PID, &log), 0);
        return f;
    }
    void Run(const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            SCOPED_TRACE(step.event);
            kernel.Write(At(step.machine, step.process, step.thread));
            EXPECT_EQ(Pass(), 0);
            EXPECT_EQ(Read(), step.figures);
        }
        EXPECT_EQ(log.TakeTexts(), Texts());
    }

    FakeKernel kernel{At(0, 0, 0)};
    Monitor monitor;
    CapturingLog log;
};

TEST(ProcessCPU, NamesWithoutBlanksAndFieldsUpToTheTimes) {
    struct Case {
        std::string text;
        bool process;
        bool thread;
    };
    using namespace std::string_literals;
    const std::string to_13 = "17 (s) S 1 1 1 0 -1 +0 1 0 0 0";
    std::vector<Case> cases = {
        {to_13 + "\n250\t80 3 1 x", true, true},
        {to_13 + " 250 80 3", false, true},
        {to_13 + " 250 80", false, true},
        {to_13 + " 250", false, false},
        {to_13, false, false},
        {"17", false, false},
        {"x" + to_13 + " 250 80 3 1", false, false},
        {"", false, false},
        {"17 (s\0) S 1 1 1 0 -1 0 1 0 0 0 250 80 3 1"s, false, false},
    };
    for (const char* const command : {"(a)", "", "a)b", "\u00fcml\u00e4ut", "a b", " a", "a ",
                                      "a) S 1", "1 2 3", "a\nb", "a\tb"}) {
        const bool good = std::string(command).find_first_of(" \n\t") == std::string::npos;
        cases.push_back({ProcessStatText(PID, command, 250, 80, 3, 1), good, good});
    }
    Machine m;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        ProcessCPUInfo sample;
        m.kernel.Write({{STAT, ProcessStatText(PID, "srv", 1, 2)}, {ThreadStat("20"), c.text}});
        EXPECT_EQ(m.monitor.GetProcessCPUInfo(&sample, PID, true, &m.log), 0);
        EXPECT_EQ(sample.thread_cpu_info.size(), c.thread ? 1U : 0U);
        EXPECT_EQ(m.log.TakeTexts(), Texts(c.thread ? 0 : 1, Unparsed(ThreadStat("20"), c.text)));
        m.kernel.Write(STAT, c.text);
        EXPECT_EQ(m.monitor.GetProcessCPUInfo(&sample, PID, false, &m.log), c.process ? 0 : FAILED);
        EXPECT_EQ(m.log.TakeTexts(), Texts(c.process ? 0 : 1, Unparsed(STAT, c.text)));
    }
}

TEST(ProcessCPU, ThreadsThatCannotBeReadNeverFailIt) {
    const std::string good = ProcessStatText(20, "srv", 30, 12);
    Machine m;
    m.kernel.Write({{ThreadStat(".20"), "no thread"},
                    {ThreadStat("23x"), good},
                    {ThreadStat("name"), good},
                    {ThreadStat("4294967321"), good}});
    m.kernel.MakeFolder("/proc/17/task/26");  // ended after the walk saw it
    ProcessCPUInfo sample;
    EXPECT_EQ(m.monitor.GetProcessCPUInfo(&sample, PID, true, &m.log), 0);
    std::vector<uint32_t> tids;
    for (const auto& [tid, thread] : sample.thread_cpu_info) {
        EXPECT_EQ(thread.tid, tid);
        tids.push_back(tid);
    }
    EXPECT_THAT(tids, ElementsAre(0, 20, 23, 25));
    m.kernel.Remove("/proc/17/task");
    m.kernel.Write(ThreadStat("20"), good);
    // It ended between stat and open, or between open and read; or the folder cannot be opened.
    const std::pair<KernelCall, int> faults[] = {
        {KernelCall::Open, 2}, {KernelCall::Read, 2}, {KernelCall::OpenDir, 1}};
    for (const auto& [call, nth] : faults) {
        ProcessCPUInfo without;
        m.kernel.Fail(call, nth, ESRCH);
        EXPECT_EQ(m.monitor.GetProcessCPUInfo(&without, PID, true, &m.log), 0);
        EXPECT_TRUE(without.thread_cpu_info.empty());
    }
    const std::string unread = "ReadFromFile failed, file: /proc/17/task/20/stat.";
    EXPECT_THAT(m.log.TakeTexts(),
                ElementsAre("fopen /proc/17/task/20/stat failed, error_msg: No such process.",
                            unread, "fread failed, file: /proc/17/task/20/stat, errno: 3.", unread,
                            "opendir(/proc/17/task) failed."));
}

TEST(ProcessCPU, RecordsStandInTheOrderOfTheWork) {
    Machine m;
    m.kernel.Write(STAT, ProcessStatText(PID, "srv", 250, 80, 3, 1));
    for (const int64_t step : {10000, 10001, -1}) {
        CapturingLog log(LOG_PRIORITY_TRACE);
        ProcessCPUInfo sample;
        sample.max_cpu_utilization = sample.max_thread_cpu_utilization = 7;
        clock_us = 1999999;
        clock_step_us = step;
        EXPECT_EQ(m.monitor.GetProcessCPUInfo(&sample, PID, true, &log), 0);
        Texts texts = {"TRACE ReadFromFile succeed, file: /proc/17/stat.",
                       "TRACE sscanf succeed, file: /proc/17/stat, user:250, system:80, "
                       "user_wait:3, system_wait:1",
                       "TRACE ReadFromFile succeed, file: /proc/17/task/20/stat.",
                       "TRACE sscanf succeed, file: /proc/17/task/20/stat, utime:0, stime:0"};
        if (step > 10000) {
            texts.insert(texts.begin() + 1, "WARN read /proc/17/stat costtime:10001us");
        }
        EXPECT_EQ(log.TakeTexts(), texts);
        EXPECT_EQ(sample.max_cpu_utilization, 0);
        EXPECT_EQ(sample.max_thread_cpu_utilization, 7);  // the cycle's to set
    }
    clock_step_us = 0;
}

TEST(ProcessCPU, PercentOfOneCoreRoundedUp) {
    constexpr uint64_t limit = INT32_MAX;
    const Step cases[] = {
        {"only the normal cycle limits the thread", 1400, 1150, 1120, {150, 100, 150, 120}},
        {"rounded up", 1401, 1001, 1001, {1, 1, 1, 1}},
        {"idle", 1400, 1000, 1000, {0, 0, 0, 0}},
        {"no tick of the machine", 1000, 1150, 1090, {0, 0, 0, 0}},
        {"the type's limit",
         1400,
         1000 + limit,
         1001 + limit,
         {INT32_MAX, 0, INT32_MAX, INT32_MIN}},
        {"the product wraps", 1400, 1000 + (uint64_t{1} << 62), 1000, {0, 0, 0, 0}},
        {"process and thread fell", 1400, 999, 999, {0, 0, INT32_MIN, INT32_MIN}},
        {"the machine fell", 600, 1150, 1090, {1, 1, 1, 1}},
    };
    for (const Step& step : cases) {
        Machine m;
        m.Run({{"the machine is primed", 1000, 1, 1, {0, 0, 0, 0}},
               {"the process is primed", 2, 1000, 1000, {0, 0, 0, 0}},
               step});
    }
}

TEST(ProcessCPU, WhatCounts) {
    Machine m;
    const auto pass = [&](const KernelFiles& files, const std::vector<uint32_t>& tids,
                          const std::vector<uint64_t>& ticks) {
        m.kernel.Remove("/proc/17/task");
        m.kernel.Write(files);
        for (size_t i = 0; i < tids.size(); ++i) {
            m.kernel.Write(ThreadStat(std::to_string(tids[i])),
                           ProcessStatText(tids[i], "s", ticks[i], tids[i] == 30 ? ticks[i] : 0));
        }
        EXPECT_EQ(m.Pass(), 0);
    };
    for (int i = 0; i < 2; ++i) {
        pass({{STAT, ProcessStatText(PID, "s", 1, 2, 3, 4)}}, {10, 20, 30, 35, 50},
             {0, 0, 10, 0, 0});
    }
    // Tids 5, 25 and 60 are new, 10 and 35 have gone: only 20, 30 and 50 can be compared.
    pass({{STAT, ProcessStatText(PID, "s", 6, 8, 11, 15)},
          {"/proc/stat", "cpu  20 20 20 20 40 40 40 99 99 99\n"}},
         {5, 20, 25, 30, 50, 60}, {99, 3, 99, 12, 1, 99});
    // In 200 ticks of four cores: 5 + 6 + 8 + 11, and 2 + 2 of thread 30.
    EXPECT_THAT(m.Read(), ElementsAre(60, 8, 60, 8));
}

TEST(ProcessCPU, PrimesTwiceThenKeepsPeaksOrTheAverage) {
    Machine m;
    m.Run({{"the machine is primed", 400, 100, 50, {0, 0, 0, 0}},
           {"the process is primed", 800, 200, 100, {0, 0, 0, 0}},
           // The process since the second pass, the machine since the first.
           {"first figure", 1200, 400, 180, {100, 40, 100, 40}},
           {"both baselines move, or none", 1600, 480, 290, {100, 100, 94, 64}},
           {"no tick of the machine", 1600, 500, 290, {100, 100, 100, 64}},
           {"nearly idle", 2000, 501, 290, {100, 100, 76, 48}}});
    EXPECT_EQ(m.monitor->ClearProcessCPUPhasedCacheValue(&m.log), 0);
    // A peek raises the peaks and leaves the baselines.
    CPUInfo machine;
    machine.idle = 2400;
    ProcessCPUInfo sample;
    sample.user = 521;
    sample.thread_cpu_info[20].user = 310;
    int32_t peek[2] = {};
    EXPECT_EQ(
        m.monitor.CalcProcessCPUInfo(peek[0], peek[1], &machine, &sample, PID, false, true, &m.log),
        0);
    EXPECT_THAT(peek, ElementsAre(20, 20));
    m.Run({{"below the peek", 2400, 511, 315, {20, 25, 63, 43}}});
    m.kernel.Write(At(2800, 511, 315));
    m.kernel.Remove("/proc/17/task");
    EXPECT_EQ(m.Pass(), 0);
    EXPECT_THAT(m.Read(), ElementsAre(20, 25, 52, 0));
    EXPECT_THAT(m.log.TakeTexts(), ElementsAre("opendir(/proc/17/task) failed."));
}

TEST(ProcessCPU, TheTinyCycleOnTheCallersSamples) {
    Machine m;
    CPUInfo machine;
    ProcessCPUInfo sample;
    machine.max_cpu_utilization = 7;
    sample.max_cpu_utilization = sample.max_thread_cpu_utilization = 7;
    const auto calc = [&](uint64_t machine_ticks, uint64_t process_ticks) {
        machine.idle = machine_ticks;
        sample.user = process_ticks;
        int32_t figures[2] = {-1, -1};
        EXPECT_EQ(m.monitor->CalcProcessCPUInfoForTinyCycle(figures[0], figures[1], &machine,
                                                            &sample, PID, true, &m.log),
                  0);
        EXPECT_EQ(figures[1], 0);
        return figures[0];
    };
    EXPECT_EQ(calc(0, 0), 0);
    EXPECT_EQ(machine.max_cpu_utilization, 0U);
    EXPECT_EQ(sample.max_cpu_utilization, 7);
    EXPECT_EQ(calc(50, 10), 0);
    EXPECT_EQ(sample.max_cpu_utilization + sample.max_thread_cpu_utilization, 0);
    EXPECT_EQ(calc(400, 60), 50);  // since the first sample of each
    EXPECT_EQ(calc(800, 60), 25);
}

TEST(ProcessCPU, AFailedPassKeepsResultsAndBaselines) {
    Machine m;
    m.Run({{"1", 0, 0, 0, {0, 0, 0, 0}},
           {"2", 0, 0, 0, {0, 0, 0, 0}},
           {"3", 400, 60, 20, {60, 20, 60, 20}}});
    const auto fails = [&](int32_t status, const Texts& records) {
        EXPECT_EQ(m.Pass(), status);
        EXPECT_EQ(m.log.TakeTexts(), records);
        EXPECT_EQ(m.monitor->CalcProcessCPUMonitorInfoForTinyCycle(PID, &m.log), status);
        EXPECT_EQ(m.log.TakeTexts(), records);
        EXPECT_THAT(m.Read(), ElementsAre(60, 20, 60, 20));
    };
    m.kernel.Remove(STAT);
    fails(FAILED,
          {"fopen /proc/17/stat failed, error_msg: No such file or directory.",
           "ReadFromFile failed, file: /proc/17/stat.", "GetProcessCPUInfo failed, ret: -3353."});
    m.kernel.Write(At(500, 500, 500));
    m.kernel.Write("/proc/stat", "intr 5\n");
    fails(WRONG, {"intr 5\n Can not find cpu, maybe cpu changed, reinit cpu info.",
                  "GetCPUInfo failed, ret: -281."});
    m.monitor.cpu_core_name = {"cpu0", "cpu1", "cpu2", "cpu3"};
    m.monitor->ClearProcessCPUPhasedCacheValue(nullptr);
    m.Run({{"400 ticks since the last good pass", 800, 80, 30, {20, 10, 40, 15}}});
}

TEST(ProcessCPU, BadArgumentsAndWhatWasNeverMeasured) {
    Machine m;
    int32_t process = 7;
    int32_t thread = 7;
    ProcessCPUInfo sample;
    m.kernel.ResetCounts();
    for (const int32_t status :
         {m.monitor->CalcProcessCPUMonitorInfo(0, &m.log, true),
          m.monitor->CalcProcessCPUMonitorInfoForTinyCycle(UINT32_MAX, &m.log),
          m.monitor.GetProcessCPUInfo(nullptr, PID, true, &m.log),
          m.monitor.GetProcessCPUInfo(&sample, 0U, true, &m.log),
          m.monitor.CalcProcessCPUInfo(process, thread, nullptr, nullptr, 0U, true, true, &m.log),
          m.monitor->GetProcessCPUMonitorInfo(process, PID, &m.log),
          m.monitor->GetProcessMaxThreadCPUMonitorInfo(thread, PID, &m.log)}) {
        EXPECT_EQ(status, WRONG);
    }
    EXPECT_EQ(std::pair(process, thread), std::pair(0, 0));
    process = thread = 7;
    EXPECT_EQ(m.monitor->GetProcessCPUMonitorInfoForTinyCycle(process, thread, PID, &m.log), WRONG);
    EXPECT_EQ(std::pair(process, thread), std::pair(0, 0));
    EXPECT_EQ(m.kernel.Count(KernelCall::Open), 0);
    EXPECT_EQ(m.monitor->CalcProcessCPUMonitorInfo(PID, &m.log, false), 0);
    EXPECT_EQ(m.kernel.Count(KernelCall::Open), 2);  // no thread's
    EXPECT_EQ(m.kernel.Count(KernelCall::OpenDir), 0);
    EXPECT_EQ(m.monitor->GetProcessCPUMonitorInfo(process, PID, &m.log), 0);
    EXPECT_EQ(m.monitor->GetProcessMaxThreadCPUMonitorInfo(thread, PID, &m.log), WRONG);
    EXPECT_EQ(m.monitor->CalcProcessCPUMonitorInfoForTinyCycle(PID, &m.log), 0);
    m.monitor.process_max_thread_cpu_result_info_for_tiny_cycle.clear();
    EXPECT_EQ(m.monitor->GetProcessCPUMonitorInfoForTinyCycle(process, thread, PID, &m.log), WRONG);
    const std::string none = "17 Can Not Find Result CPU Monitor Info.";
    EXPECT_THAT(
        m.log.TakeTexts(),
        ElementsAre("0 >= pid or pid not exist pid: 0.", "0 >= pid or pid not exist pid: -1.",
                    "now_process_cpu_info is NULL or 0 >= pid, now_cpu_info: (nil), pid: 17.",
                    testing::EndsWith(", pid: 0."),
                    "now_cpu_info is NULL or now_process_cpu_info is NULL or 0>= pid, "
                    "now_cpu_info: (nil), now_process_cpu_info: (nil), pid: 0.",
                    none, none, none, none, "17 Can Not Find Result Max Thread CPU Monitor Info."));
}

}  // namespace
}  // namespace corvane_test
