// CPU of a process and of its busiest thread.
#include <cerrno>

#include "host.h"

namespace corvane_test {
namespace {

using CorvaneCommon::CPUInfo;
using CorvaneCommon::ProcessCPUInfo;

constexpr const char* STAT = "/proc/17/stat";

std::string ThreadStat(const std::string& tid) {
    return "/proc/17/task/" + tid + "/stat";
}

/// A machine of four cores, a process and its only thread after so many ticks.
KernelFiles At(uint64_t machine, uint64_t process, uint64_t thread) {
    const std::string idle = std::to_string(machine);
    KernelFiles files = Stat("cpu0 0 " + idle + ", cpu1 0 0, cpu2 0 0, cpu3 0 0");
    files[STAT] = ProcessStatText(PID, "srv", process, 0);
    files[ThreadStat("20")] = ProcessStatText(20, "srv", 0, thread);
    return files;
}

class ProcessCpu : public HostTest {
protected:
    ProcessCpu() { Boot(At(0, 0, 0)); }

    /// Both cycles side by side, which fail alike.
    int32_t Pass() {
        const int32_t status = m->CalcProcessCPUMonitorInfo(PID, log, true);
        EXPECT_EQ(m->CalcProcessCPUMonitorInfoForTinyCycle(PID, nullptr), status);
        return status;
    }
    const Call pass = [this] { return Pass(); };
    ProcessCPUInfo sample;
    const Call read = [this] {
        sample = ProcessCPUInfo();
        return inside->GetProcessCPUInfo(&sample, PID, true, log);
    };
};

TEST_F(ProcessCpu, NamesWithoutBlanksAndFieldsUpToTheTimes) {
    using namespace std::string_literals;
    struct Case {
        std::string text;
        bool process;
        bool thread;
    };
    const std::string to_13 = "17 (s) S 1 1 1 0 -1 +0 1 0 0 0";
    std::vector<Case> cases = {
        {to_13 + "\n250\t80 3 1 x", true, true},
        {to_13 + " 250 80 3", false, true},
        {to_13 + " 250 80", false, true},
        {to_13 + " 250", false, false},
        {"17", false, false},
        {"x" + to_13 + " 250 80 3 1", false, false},
        {"", false, false},
        {"17 (s\0) S 1 1 1 0 -1 0 1 0 0 0 250 80 3 1"s, false, false},
    };
    for (const char* const name : {"(a)", "", "a)b", "\u00fcml\u00e4ut", "a b", " a", "a ",
                                   "a) S 1", "1 2 3", "a\nb", "a\tb"}) {
        const bool good = std::string(name).find_first_of(" \n\t") == std::string::npos;
        cases.push_back({ProcessStatText(PID, name, 250, 80, 3, 1), good, good});
    }
    for (const Case& c : cases) {
        const std::string unparsed = ", buf: "s + c.text.c_str() + ".";
        kernel.Write({{STAT, ProcessStatText(PID, "srv", 1, 2)}, {ThreadStat("20"), c.text}});
        EXPECT_EQ(See(read), c.thread ? "" : "sscanf failed, file: " + ThreadStat("20") + unparsed);
        EXPECT_EQ(sample.thread_cpu_info.size(), c.thread ? 1U : 0U);
        EXPECT_EQ(After(read, KernelFiles{{STAT, c.text}, {ThreadStat("20"), to_13 + " 1 1"}}),
                  c.process ? "" : "FAILED; sscanf failed, file: /proc/17/stat"s + unparsed);
    }
}

TEST_F(ProcessCpu, ThreadsThatCannotBeReadEndNothing) {
    const std::string good = ProcessStatText(20, "srv", 30, 12);
    const auto tids = [this] {
        std::string list;
        for (const auto& [tid, thread] : sample.thread_cpu_info) {
            list += (tid == thread.tid ? " " : " NOT ") + std::to_string(tid);
        }
        return list;
    };
    kernel.Write({{ThreadStat(".20"), "no thread"},
                  {ThreadStat("1"), "no time"},
                  {ThreadStat("23x"), good},
                  {ThreadStat("name"), good},
                  {ThreadStat("4294967321"), good}});
    kernel.MakeFolder("/proc/17/task/19");  // ended after the walk saw it
    EXPECT_EQ(See(read), "sscanf failed, file: /proc/17/task/1/stat, buf: no time.");
    EXPECT_EQ(tids(), " 0 20 23 25");
    kernel.Remove("/proc/17/task");
    kernel.Write({{ThreadStat("20"), good}, {ThreadStat("21"), good}});
    // It ended between stat and open, or between open and read; or the folder cannot be opened.
    const std::string unread = "; ReadFromFile failed, file: /proc/17/task/20/stat.";
    const struct {
        KernelCall call;
        int nth;
        std::string seen;
        std::string tids;
    } cases[] = {
        {KernelCall::Open, 2,
         "fopen /proc/17/task/20/stat failed, error_msg: No such process." + unread, " 21"},
        {KernelCall::Read, 2, "fread failed, file: /proc/17/task/20/stat, errno: 3." + unread,
         " 21"},
        {KernelCall::OpenDir, 1, "opendir(/proc/17/task) failed.", ""},
    };
    for (const auto& c : cases) {
        kernel.Fail(c.call, c.nth, ESRCH);
        EXPECT_EQ(See(read), c.seen);
        EXPECT_EQ(tids(), c.tids);
    }
}

TEST_F(ProcessCpu, RecordsStandInTheOrderOfTheWork) {
    kernel.Write({{STAT, ProcessStatText(PID, "srv", 250, 80, 3, 1)},
                  {ThreadStat("20"), ProcessStatText(20, "srv", 5, 6)}});
    records.accepted = LOG_PRIORITY_TRACE;
    for (const int64_t step : {10000, 10001, -1}) {
        kernel.clock_us = 1999999;
        kernel.clock_step_us = step;
        EXPECT_EQ(See(read),
                  std::string("TRACE ReadFromFile succeed, file: /proc/17/stat.; ") +
                      (step > 10000 ? "WARN read /proc/17/stat costtime:10001us; " : "") +
                      "TRACE sscanf succeed, file: /proc/17/stat, user:250, system:80, "
                      "user_wait:3, system_wait:1; TRACE ReadFromFile succeed, file: "
                      "/proc/17/task/20/stat.; TRACE sscanf succeed, file: "
                      "/proc/17/task/20/stat, utime:5, stime:6");
        EXPECT_EQ(sample.pid, PID);
    }
}

TEST_F(ProcessCpu, PercentOfOneCoreRoundedUp) {
    constexpr uint64_t LIMIT = INT32_MAX;
    const std::string least = std::to_string(INT32_MIN);
    const std::string most = std::to_string(INT32_MAX);
    const struct {
        const char* what;
        uint64_t machine;
        uint64_t process;
        uint64_t thread;
        std::string seen;
    } cases[] = {
        {"only the normal cycle limits the thread", 1400, 1150, 1120,
         "process 150 100; tiny process 150 120"},
        {"rounded up", 1401, 1001, 1001, "process 1 1; tiny process 1 1"},
        {"idle", 1400, 1000, 1000, ""},
        {"no tick of the machine", 1000, 1150, 1090, ""},
        {"the type's limit", 1400, 1000 + LIMIT, 1001 + LIMIT,
         "process " + most + " 0; tiny process " + most + " " + least},
        {"the product wraps", 1400, 1000 + (uint64_t{1} << 62), 1000, ""},
        {"both fell", 1400, 999, 999, "tiny process " + least + " " + least},
        {"the machine fell", 600, 1150, 1090, "process 1 1; tiny process 1 1"},
    };
    for (const auto& c : cases) {
        Boot(At(1000, 1, 1));
        Replay(pass, {{{}, "process 0 0; tiny process 0 0"},  // the machine is primed
                      {At(2, 1000, 1000), ""},                // the process is primed
                      {At(c.machine, c.process, c.thread), c.seen}});
    }
}

TEST_F(ProcessCpu, WhatCounts) {
    const auto files = [this](const std::string& process, const std::string& threads) {
        kernel.Remove("/proc/17/task");
        KernelFiles written = {{STAT, "17 (s) S 1 1 1 0 -1 0 1 0 0 0 " + process + " 0"}};
        for (const auto& [tid, n] : Rows(threads)) {
            written[ThreadStat(tid)] = ProcessStatText(0, "s", n[0], n[1]);
        }
        return written;
    };
    kernel.Write(files("1 2 3 4", "10 0 0, 20 0 0, 30 10 10, 35 0 0, 50 0 0"));
    Replay(pass, {{{}, "process 0 0; tiny process 0 0"}, {{}, ""}});
    // Tids 5, 25 and 60 are new, 10 and 35 have gone: only 20, 30 and 50 can be compared.
    EXPECT_EQ(After(pass, KernelFiles{{"/proc/stat", "cpu  20 20 20 20 40 40 40 99 99 99\n"}},
                    files("6 8 11 15", "5 99 0, 20 3 0, 25 99 0, 30 12 12, 50 1 0, 60 99 0")),
              // In 200 ticks of four cores: 5 + 6 + 8 + 11, and 2 + 2 of thread 30.
              "process 60 8; tiny process 60 8");
}

TEST_F(ProcessCpu, PrimesTwiceThenKeepsPeaksOrTheAverage) {
    const Call clear = [this] { return m->ClearProcessCPUPhasedCacheValue(log); };
    Replay(pass, {{At(400, 100, 50), "process 0 0; tiny process 0 0"},
                  {At(800, 200, 100), ""},
                  // The process since the second pass, the machine since the first.
                  {At(1200, 400, 180), "process 100 40; tiny process 100 40"},
                  // Both baselines move, or none.
                  {At(1600, 480, 290), "process 100 100; tiny process 94 64"},
                  {At(1600, 500, 290), "tiny process 100 64"},
                  {At(2000, 501, 290), "tiny process 76 48"}});
    EXPECT_EQ(See(clear), "");
    // A peek raises the peaks and leaves the baselines.
    CPUInfo machine;
    machine.idle = 2400;
    sample.user = 521;
    sample.thread_cpu_info[20].user = 310;
    EXPECT_EQ(See([&] {
                  return inside->CalcProcessCPUInfo(out.percent[0], out.percent[1], &machine,
                                                    &sample, PID, false, true, log);
              }),
              "percent 20 20");
    EXPECT_EQ(After(pass, At(2400, 511, 315)), "process 20 25; tiny process 63 43");
    See(clear);
    EXPECT_EQ(After(pass, At(2800, 511, 315)), "process 0 0; tiny process 52 36");
    kernel.Remove("/proc/17/task");
    EXPECT_EQ(After(pass, KernelFiles{{STAT, ProcessStatText(PID, "srv", 531, 0)}}),
              "opendir(/proc/17/task) failed.; tiny process 56 0");
}

TEST_F(ProcessCpu, TheTinyCycleOnTheCallersSamples) {
    CPUInfo machine;
    machine.max_cpu_utilization = 7;
    sample.max_cpu_utilization = sample.max_thread_cpu_utilization = 7;
    const auto calc = [&](uint64_t machine_ticks, uint64_t ticks, bool threads = true) {
        machine.idle = machine_ticks;
        sample.user = sample.thread_cpu_info[20].user = ticks;
        return See([&] {
            return m->CalcProcessCPUInfoForTinyCycle(out.percent[0], out.percent[1], &machine,
                                                     &sample, PID, threads, log);
        });
    };
    EXPECT_EQ(calc(0, 0), "percent 0 0");
    EXPECT_EQ(machine.max_cpu_utilization, 0U);
    EXPECT_EQ(sample.max_cpu_utilization, 7);
    EXPECT_EQ(calc(50, 10), "percent 0 0");
    EXPECT_EQ(sample.max_cpu_utilization + sample.max_thread_cpu_utilization, 0);
    EXPECT_EQ(calc(400, 60), "percent 50 50");  // since the first sample of each
    EXPECT_EQ(calc(800, 60, false), "percent 25 0");
}

TEST_F(ProcessCpu, AFailedPassKeepsResultsAndBaselines) {
    Replay(pass, {{{}, "process 0 0; tiny process 0 0"},
                  {{}, ""},
                  {At(400, 60, 20), "process 60 20; tiny process 60 20"}});
    const Call tiny = [this] { return m->CalcProcessCPUMonitorInfoForTinyCycle(PID, log); };
    for (const Call& call : {pass, tiny}) {
        kernel.Remove(STAT);
        EXPECT_EQ(See(call),
                  "FAILED; fopen /proc/17/stat failed, error_msg: No such file or directory.; "
                  "ReadFromFile failed, file: /proc/17/stat.; GetProcessCPUInfo failed, ret: "
                  "-3353.");
        EXPECT_EQ(After(call, At(500, 500, 500), KernelFiles{{"/proc/stat", "intr 5\n"}}),
                  "WRONG; intr 5\n Can not find cpu, maybe cpu changed, reinit cpu info.; "
                  "GetCPUInfo failed, ret: -281.; cpu 0 0; tiny cpu 0 0");
        inside->cpu_core_name = {"cpu0", "cpu1", "cpu2", "cpu3"};
        See([] { return 0; });
    }
    m->ClearProcessCPUPhasedCacheValue(log);
    // 400 ticks since the last good pass.
    EXPECT_EQ(After(pass, At(800, 80, 30)), "process 20 10; tiny process 40 15");
}

TEST_F(ProcessCpu, WhatWasNeverMeasured) {
    const std::string none = "WRONG; 17 Can Not Find Result CPU Monitor Info.; percent 0 ";
    const std::string untouched = std::to_string(0x07070707);
    int32_t* const percent = out.percent;
    const auto get = [&] { return m->GetProcessCPUMonitorInfo(percent[0], PID, log); };
    const auto get_thread = [&] {
        return m->GetProcessMaxThreadCPUMonitorInfo(percent[0], PID, log);
    };
    const auto get_tiny = [&] {
        return m->GetProcessCPUMonitorInfoForTinyCycle(percent[0], percent[1], PID, log);
    };
    EXPECT_EQ(See(get), none + untouched);
    EXPECT_EQ(See(get_tiny), none + "0");
    kernel.ResetCounts();
    EXPECT_EQ(See([&] { return m->CalcProcessCPUMonitorInfo(PID, log, false); }), "process 0 -");
    EXPECT_EQ(kernel.Count(KernelCall::Open), 2);  // no thread's
    EXPECT_EQ(kernel.Count(KernelCall::OpenDir), 0);
    EXPECT_EQ(See(get), "percent 0 " + untouched);
    EXPECT_EQ(See(get_thread), none + untouched);
    EXPECT_EQ(See([&] { return m->CalcProcessCPUMonitorInfoForTinyCycle(PID, log); }),
              "tiny process 0 0");
    inside->process_max_thread_cpu_result_info_for_tiny_cycle.clear();
    EXPECT_EQ(See(get_tiny),
              "WRONG; 17 Can Not Find Result Max Thread CPU Monitor Info.; tiny process -; "
              "percent 0 0");
}

}  // namespace
}  // namespace corvane_test
