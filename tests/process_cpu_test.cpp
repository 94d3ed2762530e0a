// CPU of a process and of its busiest thread.
#include <cerrno>

#include "host.h"

namespace corvane_test {
namespace {

using CorvaneCommon::CPUInfo;
using CorvaneCommon::ProcessCPUInfo;

const std::string STAT = "/proc/1/stat";
const std::string FIRST = "process 0 0; tiny process 0 0";

std::string ThreadStat(const std::string& tid) {
    return "/proc/1/task/" + tid + "/stat";
}

/// A machine of four cores, a process and its only thread after so many ticks.
KernelFiles At(uint64_t machine, uint64_t process, uint64_t thread) {
    KernelFiles files = Stat("cpu0 0" + Words(machine) + ", cpu1 0 0, cpu2 0 0, cpu3 0 0");
    files[STAT] = ProcessStatText(PID, "srv", process, 0);
    files[ThreadStat("20")] = ProcessStatText(20, "srv", 0, thread);
    return files;
}

class ProcessCpu : public HostTest {
protected:
    ProcessCpu() { Boot(At(0, 0, 0)); }

    ProcessCPUInfo sample;
    const Call read = [this] {
        sample = ProcessCPUInfo();
        return inside->GetProcessCPUInfo(&sample, PID, true, log);
    };
    /// Both cycles side by side, which fail alike.
    const Call pass = [this] {
        const int32_t status = m->CalcProcessCPUMonitorInfo(PID, log, true);
        EXPECT_EQ(m->CalcProcessCPUMonitorInfoForTinyCycle(PID, nullptr), status);
        return status;
    };
};

TEST_F(ProcessCpu, NamesWithoutBlanksAndFieldsUpToTheTimes) {
    const std::string to_13 = "17 (s) S 1 1 1 0 -1 +0 1 0 0 0";
    std::vector<std::pair<std::string, int>> cases = {
        // 0: no reader of the times takes it; 1: that of threads; 2: both
        {to_13 + "\n250\t80 3 1 x", 2},
        {to_13 + " 250 80 3", 1},
        {to_13 + " 250 80", 1},
        {to_13 + " 250", 0},
        {"17", 0},
        {"x" + to_13 + " 250 80 3 1", 0},
        {"", 0}};
    for (const char* const name : {"(a)", "", "a)b", "\u00fcml\u00e4ut"}) {
        cases.emplace_back(ProcessStatText(PID, name, 250, 80, 3, 1), 2);
    }
    for (const char* const name : {"a b", " a", "a ", "a) S 1", "1 2 3", "a\nb", "a\tb"}) {
        cases.emplace_back(ProcessStatText(PID, name, 250, 80, 3, 1), 0);
    }
    for (const auto& [text, readers] : cases) {
        const std::string unparsed = "sscanf failed, file: /proc/1/";
        kernel.Write({{STAT, ProcessStatText(PID, "srv", 1, 2)}, {ThreadStat("20"), text}});
        EXPECT_EQ(See(read), readers > 0 ? "" : unparsed + "task/20/stat, buf: " + text + ".");
        EXPECT_EQ(sample.thread_cpu_info.size(), readers > 0 ? 1U : 0U);
        kernel.Write({{STAT, text}, {ThreadStat("20"), to_13 + " 1 1"}});
        EXPECT_EQ(See(read), readers > 1 ? "" : "FAILED; " + unparsed + "stat, buf: " + text + ".");
    }
}

TEST_F(ProcessCpu, ThreadsThatCannotBeReadEndNothing) {
    const std::string good = ProcessStatText(20, "srv", 30, 12);
    const auto tids = [this] {
        std::string list;
        for (const auto& [tid, thread] : sample.thread_cpu_info) {
            list += Words(tid == thread.tid ? tid : 0);
        }
        return list;
    };
    kernel.Write({{ThreadStat(".20"), "no thread"},
                  {ThreadStat("1"), "no time"},
                  {ThreadStat("23x"), good},
                  {ThreadStat("4294967321"), good}});
    kernel.MakeFolder("/proc/1/task/19");  // ended after the walk saw it
    EXPECT_EQ(See(read), "sscanf failed, file: /proc/1/task/1/stat, buf: no time.");
    EXPECT_EQ(tids(), " 20 23 25");
    kernel.Remove("/proc/1/task");
    kernel.Write({{ThreadStat("20"), good}, {ThreadStat("21"), good}});
    // It ended between stat and open, or between open and read; or the folder cannot be opened.
    const std::string unread = "; ReadFromFile failed, file: /proc/1/task/20/stat.";
    kernel.Fail(KernelCall::Open, 2, ESRCH);
    EXPECT_EQ(See(read), "fopen /proc/1/task/20/stat failed, error_msg: No such process." + unread);
    EXPECT_EQ(tids(), " 21");
    kernel.Fail(KernelCall::Read, 2, ESRCH);
    EXPECT_EQ(See(read), "fread failed, file: /proc/1/task/20/stat, errno: 3." + unread);
    EXPECT_EQ(tids(), " 21");
    kernel.Fail(KernelCall::OpenDir, 1, ESRCH);
    EXPECT_EQ(See(read), "opendir(/proc/1/task) failed.");
    EXPECT_EQ(tids(), "");
}

TEST_F(ProcessCpu, RecordsStandInTheOrderOfTheWork) {
    kernel.Write(STAT, ProcessStatText(PID, "srv", 250, 80, 3, 1));
    records.accepted = LOG_PRIORITY_TRACE;
    for (const int64_t step : {10000, 10001, -1}) {
        kernel.clock_us = 1999999;
        kernel.clock_step_us = step;
        EXPECT_EQ(See(read),
                  std::string("TRACE ReadFromFile succeed, file: /proc/1/stat.; ") +
                      (step > 10000 ? "WARN read /proc/1/stat costtime:10001us; " : "") +
                      "TRACE sscanf succeed, file: /proc/1/stat, user:250, system:80, "
                      "user_wait:3, system_wait:1; TRACE ReadFromFile succeed, file: "
                      "/proc/1/task/20/stat.; TRACE sscanf succeed, file: /proc/1/task/20/stat, "
                      "utime:0, stime:0");
    }
    EXPECT_EQ(sample.pid, PID);
    kernel.clock_step_us = 10001;
    EXPECT_EQ(AFTER((KernelFiles{{STAT, "x"}}), read()),
              "FAILED; TRACE ReadFromFile succeed, file: /proc/1/stat.; WARN read /proc/1/stat "
              "costtime:10001us; sscanf failed, file: /proc/1/stat, buf: x.");
}

TEST_F(ProcessCpu, PercentOfOneCoreRoundedUp) {
    const std::string least = "-2147483648";
    const std::vector<Step> cases = {
        {At(1400, 1150, 1120), "process 150 100; tiny process 150 120"},  // normal limits a thread
        {At(1401, 1001, 1001), "process 1 1; tiny process 1 1"},          // rounded up
        {At(1400, 1000, 1000), ""},
        {At(1000, 1150, 1090), ""},  // no tick of the machine
        {At(1400, 1000UL + INT32_MAX, 1001UL + INT32_MAX),
         "process 2147483647 0; tiny process 2147483647 " + least},
        {At(1400, 1000 + (uint64_t{1} << 62), 1000), ""},             // the product wraps
        {At(1400, 999, 999), "tiny process " + least + " " + least},  // counters fell
        {At(600, 1150, 1090), "process 1 1; tiny process 1 1"}};      // the machine's fell
    for (const Step& step : cases) {
        Boot(At(1000, 1, 1));
        Replay(pass, {{{}, FIRST}, {At(2, 1000, 1000), ""}, step});  // machine, process are primed
    }
}

TEST_F(ProcessCpu, WhatCounts) {
    const auto write = [this](const std::string& process, const std::string& threads) {
        kernel.Remove("/proc/1/task");
        kernel.Write(STAT, "17 (s) S 1 1 1 0 -1 0 1 0 0 0 " + process + " 0");
        for (const auto& [tid, n] : Rows(threads)) {
            kernel.Write(ThreadStat(tid), ProcessStatText(0, "s", n[0], n[1]));
        }
    };
    write("1 2 3 4", "10 0 0, 20 0 0, 30 10 10, 35 0 0, 50 0 0");
    Replay(pass, {{{}, FIRST}, {{}, ""}});
    // Tids 5, 25 and 60 are new, 10 and 35 have gone: only 20, 30 and 50 can be compared.
    write("6 8 11 15", "5 99 0, 20 3 0, 25 99 0, 30 12 12, 50 1 0, 60 99 0");
    // In 200 ticks of four cores: 5 + 6 + 8 + 11, and 2 + 2 of thread 30.
    Replay(pass, {{{{"/proc/stat", "cpu  20 20 20 20 40 40 40 99 99 99\n"}},
                   "process 60 8; tiny process 60 8"}});
}

TEST_F(ProcessCpu, PrimesTwiceThenKeepsPeaksOrTheAverage) {
    Replay(pass, {{At(400, 100, 50), FIRST},
                  {At(800, 200, 100), ""},
                  // The process since the second pass, the machine since the first.
                  {At(1200, 400, 180), "process 100 40; tiny process 100 40"},
                  // Both baselines move, or none.
                  {At(1600, 480, 290), "process 100 100; tiny process 94 64"},
                  {At(1600, 500, 290), "tiny process 100 64"},
                  {At(2000, 501, 290), "tiny process 76 48"}});
    EXPECT_EQ(SEE(m->ClearProcessCPUPhasedCacheValue(log)), "");
    // A peek raises the peaks and leaves the baselines.
    CPUInfo machine;
    machine.idle = 2400;
    sample.user = 521;
    sample.thread_cpu_info[20].user = 310;
    int32_t* const percent = out.percent;
    EXPECT_EQ(SEE(inside->CalcProcessCPUInfo(percent[0], percent[1], &machine, &sample, PID, false,
                                             true, log)),
              "percent 20 20");
    Replay(pass, {{At(2400, 511, 315), "process 20 25; tiny process 63 43"}});
    m->ClearProcessCPUPhasedCacheValue(log);
    Replay(pass, {{At(2800, 511, 315), "process 0 0; tiny process 52 36"}});
    // A failed pass keeps results and baselines.
    const Call tiny = [this] { return m->CalcProcessCPUMonitorInfoForTinyCycle(PID, log); };
    for (const Call& call : {pass, tiny}) {
        kernel.Remove(STAT);
        EXPECT_EQ(
            See(call),
            "FAILED; fopen /proc/1/stat failed, error_msg: No such file or directory.; "
            "ReadFromFile failed, file: /proc/1/stat.; GetProcessCPUInfo failed, ret: -3353.");
        kernel.Write(At(500, 500, 500));
        Replay(call, {{{{"/proc/stat", "intr 5\n"}},
                       "WRONG; intr 5\n Can not find cpu, maybe cpu changed, reinit cpu info.; "
                       "GetCPUInfo failed, ret: -281.; cpu 0 0; tiny cpu 0 0"}});
        inside->cpu_core_name = {"cpu0", "cpu1", "cpu2", "cpu3"};
        SEE(0);
    }
    Replay(pass, {{At(3200, 531, 325), "process 20 10; tiny process 48 33"}});
}

TEST_F(ProcessCpu, TheTinyCycleOnTheCallersSamples) {
    CPUInfo machine;
    machine.max_cpu_utilization = 7;
    sample.max_cpu_utilization = sample.max_thread_cpu_utilization = 7;
    const auto calc = [&](uint64_t machine_ticks, uint64_t ticks, bool threads = true) {
        machine.idle = machine_ticks;
        sample.user = sample.thread_cpu_info[20].user = ticks;
        return SEE(m->CalcProcessCPUInfoForTinyCycle(out.percent[0], out.percent[1], &machine,
                                                     &sample, PID, threads, log));
    };
    EXPECT_EQ(calc(0, 0), "percent 0 0");
    EXPECT_EQ(machine.max_cpu_utilization, 0U);
    EXPECT_EQ(sample.max_cpu_utilization, 7);
    EXPECT_EQ(calc(50, 10), "percent 0 0");
    EXPECT_EQ(sample.max_cpu_utilization + sample.max_thread_cpu_utilization, 0);
    EXPECT_EQ(calc(400, 60), "percent 50 50");  // since the first sample of each
    EXPECT_EQ(calc(800, 60, false), "percent 25 0");
}

TEST_F(ProcessCpu, WhatWasNeverMeasured) {
    int32_t& a = out.percent[0];
    int32_t& b = out.percent[1] = 0;
    const std::string none = "WRONG; 1 Can Not Find Result CPU Monitor Info.; percent 0 ";
    const std::string untouched = std::to_string(0x07070707);
    EXPECT_EQ(SEE(m->GetProcessCPUMonitorInfo(a, PID, log)), none + untouched);
    EXPECT_EQ(SEE(m->GetProcessCPUMonitorInfoForTinyCycle(a, b, PID, log)), none + "0");
    kernel.ResetCounts();
    EXPECT_EQ(SEE(m->CalcProcessCPUMonitorInfo(PID, log, false)), "process 0 -");
    EXPECT_EQ(kernel.Count(KernelCall::Open), 2);  // no thread's
    EXPECT_EQ(kernel.Count(KernelCall::OpenDir), 0);
    EXPECT_EQ(SEE(m->GetProcessCPUMonitorInfo(a, PID, log)), "percent 0 " + untouched);
    EXPECT_EQ(SEE(m->GetProcessMaxThreadCPUMonitorInfo(a, PID, log)), none + untouched);
}

}  // namespace
}  // namespace corvane_test
