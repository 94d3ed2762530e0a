// The strict reading of cores, processes, memory and interfaces.
#include "host.h"
#include "monitor_physical_util_internal.h"

namespace corvane_test {
namespace {

using namespace CorvaneCommon;

class Strict : public HostTest {
protected:
    template <typename... Files>
    void Choose(const Files&... files) {
        Boot(files...);
        SEE(m->SetStrictReading(true, nullptr));
    }
};

TEST_F(Strict, CoresThatBothSamplesHold) {
    Choose(Stat("cpu0 0 0, cpu2 0 0, cpu10 0 0"));
    const KernelFiles fields = {{"/proc/stat",
                                 "cpu  9 9 9 9\n"
                                 "cpu0 240 30 10 85 0 5 5 110 99 99\n"  // 70 busy of 200
                                 "cpu1 17 0 0 97 1\n"
                                 "softirq cpu0 1\n"}};
    const std::string torn = CPULine("cpu0", 900, 900) + "cpu1 1 1 1 9";
    Replay([&] { return m->CalcCPUMonitorInfo(true, log); },
           {{Stat("cpu0 90 10, cpu2 1 99, cpu10 2 198"), "cpu 3 92; cores cpu0 90 cpu2 1 cpu10 1"},
            // One goes and two come, in other places; idle steps back.
            {Stat("cpu0 180 5, cpu1 7 7, cpu10 2 198, cpu11 9 9"),
             "cpu 4 100; tiny cpu 4 0; cores cpu0 100 cpu10 0"},
            // The one that had gone is new again.
            {Stat("cpu0 220 65, cpu1 17 97, cpu2 50 99"),
             "cpu 3 100; tiny cpu 3 0; cores cpu0 40 cpu1 10"},
            {fields, "cpu 2 100; tiny cpu 2 0; cores cpu0 35 cpu1 0"},
            {{{"/proc/stat", torn}},
             "FAILED; sscanf failed, file: /proc/stat, buf: cpu1 1 1 1 9.; cores"},
            {{{"/proc/stat", "cpu  1 1 1 1\nintr 1\n"}},
             "WRONG; Can not find any core, file: /proc/stat.; cpu 0 100; tiny cpu 0 0"},
            {Stat("cpu0 1 1"),
             "NO SAMPLE; can not get old cpu info of any core.; cpu 1 100; tiny cpu 1 0"},
            {{{"/proc/stat", "cpu0 18446744073709551615 0 0 99999999999999999999999\n"}},
             "cores cpu0 50"}});
    kernel.Fail(KernelCall::Read, 1, EIO, 9);
    EXPECT_EQ(SEE(m->CalcCPUMonitorInfoForTinyCycle(true, nullptr)), "FAILED");
}

TEST_F(Strict, CoresInTheTinyCycleAndByName) {
    Choose(Stat("cpu0 0 0, cpu1 0 0, cpu10 0 0"));
    const auto tiny = [&] { return m->CalcCPUMonitorInfoForTinyCycle(false, log); };
    Replay(tiny, {{Stat("cpu0 50 50, cpu10 30 70"), "cpu 2 0; tiny cpu 2 80"},
                  {Stat("cpu0 60 140, cpu10 0 70"), "tiny cpu 2 30"}});
    const auto by_name = [&](const char* name) {
        return See([&] { return m->GetCPUMonitorInfo(&out.core, name, true, log); });
    };
    EXPECT_EQ(by_name("cpu10"), "core 2 0");
    EXPECT_EQ(by_name("cpu"), "core 2 23");
    EXPECT_NE(by_name("cpu1").find("Can not find cpu1"), std::string::npos);
    kernel.Write("/proc/stat", "cpu4 1 1 1 1\n");
    EXPECT_EQ(by_name("cpu4").substr(0, 9), "NO SAMPLE");
}

TEST(StrictProcess, FieldsAreCountedFromTheLastParenthesis) {
    for (const char* const name :
         {"a", "a b", " a", "a 1 2 3", "a) b", "((a))", "", "GC Thread#0", "a\n) R 1", "ä"}) {
        ProcessCPUInfo process;
        EXPECT_TRUE(ParseProcessStat(ProcessStatText(7, name, 1, 2, 3, 4, 5).c_str(), process));
        EXPECT_EQ(process.user * 10000 + process.system * 1000 + process.user_wait * 100 +
                      process.system_wait * 10 + process.start_time,
                  12345U)
            << name;
    }
}

class StrictPasses : public Strict {
protected:
    /// A process with the ticks, and its threads.
    static KernelFiles Process(uint64_t ticks, std::vector<uint64_t> threads,
                               uint64_t start = 100) {
        KernelFiles files = {{"/proc/1/stat", ProcessStatText(PID, "a b", ticks, 0, 0, 0, start)}};
        for (size_t i = 0; i < threads.size(); ++i) {
            files["/proc/1/task/" + std::to_string(i + 1) + "/stat"] = ProcessStatText(
                PID, "GC Thread#0", threads[i] / 3, threads[i] - threads[i] / 3, 0, 0, start);
        }
        return files;
    }
    std::string Pass(int64_t milliseconds, const KernelFiles& files, bool threads = true) {
        kernel.monotonic_us += milliseconds * 1000;
        return AFTER(files, m->CalcProcessCPUMonitorInfo(PID, log, threads));
    }
    std::string TinyPass(int64_t milliseconds, const KernelFiles& files) {
        kernel.monotonic_us += milliseconds * 1000;
        return AFTER(files, m->CalcProcessCPUMonitorInfoForTinyCycle(PID, log));
    }
};

TEST_F(StrictPasses, AProcessByTheClock) {
    Choose(Process(50, {10, 10}));
    EXPECT_EQ(Pass(1000, {}), "");
    EXPECT_EQ(TinyPass(0, {}), "");
    EXPECT_EQ(Pass(1000, Process(200, {11, 80})), "process 150 70");
    EXPECT_EQ(TinyPass(0, {}), "tiny process 150 70");
    EXPECT_EQ(Pass(49, Process(300, {12, 90})), "");  // too soon
    // Peaks stay, here those of the 150 ticks in the second before.
    EXPECT_EQ(Pass(951, Process(301, {15, 100})), "");
    m->ClearProcessCPUPhasedCacheValue(log);
    EXPECT_EQ(Pass(3000, Process(302, {14, 9999})), "process 1 100");
    // One of them is another thread by its start time; its number is lower, too.
    kernel.Remove("/proc/1/task/2");
    EXPECT_EQ(Pass(1000, {{"/proc/1/task/1/stat", ProcessStatText(1, "x", 1, 0, 0, 0, 7)}}),
              "process 1 -");
    // A child of long before is waited for: none of its time is of this pass.
    EXPECT_EQ(Pass(1000, {{"/proc/1/stat", ProcessStatText(PID, "a", 303, 0, 9999, 9, 100)}}),
              "process 1 100");
    // Another process, and then none of its counters moves; then all of them wrap.
    EXPECT_EQ(TinyPass(0, Process(9, {9}, 200)), "tiny process -");
    EXPECT_EQ(Pass(1000, {}, false), "process -");
    EXPECT_EQ(Pass(1000, {}, false), "process 0 -");
    EXPECT_EQ(TinyPass(1000, Process(UINT64_MAX, {UINT64_MAX}, 200)),
              "tiny process 2147483647 2147483647");
    EXPECT_EQ(Pass(0, Process(8, {8}, 200)), "");
    kernel.Fail(KernelCall::OpenDir, 1, EMFILE);
    EXPECT_EQ(Pass(1000, Process(58, {8}, 200)), "opendir(/proc/1/task) failed.; process 50 -");
    kernel.Write("/proc/1/stat", "1 a b S 1\n");
    EXPECT_NE(Pass(1000, {}).find("FAILED; sscanf failed"), std::string::npos);
}

TEST_F(Strict, MemoryInAnyOrder) {
    Choose();
    const std::string all = "MemTotal: 1000000 kB\nMemFree: 200000 kB\n";
    const struct {
        std::string text;
        const char* seen;
    } cases[] = {
        {"SwapCached: 1 kB\nShmem: 10000 kB\nCached: 300000 kB\nBuffers: 50000 kB\n" + all,
         "memory 976 449"},
        {all, "memory 976 781"},
        {all + "ShmemHugePages: 9 kB\nBuffers: 99999 kB\nMemTotal: 1 kB\n", "memory 976 683"},
        {all + "Cached: 800001 kB\n", "WRONG"},
        {all + "Shmem: 800001 kB\n", "WRONG"},
        {all + "Cached: 99999999999999999999999 kB\nShmem: 1 kB\n", "WRONG"},
        {"MemFree: 5 kB\nMemTotalX: 5 kB\n", "WRONG"},
        {all + "Cached: x\n", "FAILED"},
        {all + "Cached: 5", "WRONG"},
    };
    for (const auto& c : cases) {
        kernel.Write("/proc/meminfo", c.text);
        const std::string seen = SEE(m->GetMemoryMonitorInfo(&out.memory, log));
        EXPECT_EQ(seen.substr(0, seen.find(';')), c.seen) << c.text;
    }
    kernel.Write("/proc/1/status", "Name:\tVmSize 7\nVmRSS:\t2048 kB\nVmSize:\t4096 kB\n");
    EXPECT_EQ(SEE(m->GetProcessMemoryMonitorInfo(&out.process_memory, PID, log)),
              "process memory 2 4");
}

KernelFiles Net(const std::string& list, const std::string& more = "",
                const char* path = "/proc/net/dev") {
    return {{path, NetDevText({Nics(list), more})}};
}

TEST_F(Strict, InterfacesThatComeAndGo) {
    Choose(Net("lo 0 0, ens3 0 0, veth1a 0 0"));
    const auto pass = [&](bool refresh = true) {
        return [&, refresh] { return m->CalcNetworkMonitorInfo(2, refresh, log); };
    };
    const std::string fell = "can not get old network info, nic_name: ens3.";
    Replay(
        pass(),
        {{Net("lo 800 800, veth1a 20 0, ens3 80 40"),
          "network 40 20 0 0 ens3 ens3; interfaces veth1a 1250000 0 10 0 ens3 5000000 2500000 40 "
          "20"},
         // New ones, one in front; one goes; rates below a megabit.
         {Net("eth1 500 500, lo 900 800, ens3 81 40"), "interfaces ens3 62500 0 0 0"},
         {Net("veth1a 90 0, eth1 502 500, ens3 81 40"),
          "interfaces eth1 125000 0 1 0 ens3 0 0 0 0"},
         // Fewer bytes, and a line that is none: they take only their own figures with them.
         {Net("veth1a 92 0, ens3 80 40", "eth1: 1 2 3\n"),
          fell + "; sscanf failed, buf: eth1: 1 2 3.; interfaces veth1a 125000 0 1 0"},
         {Net("ens3 82 40, eth1 9 9", "veth1a: 99999999 5 0 0 0 0 0 0 3 4"),
          "sscanf failed, buf: veth1a: 99999999 5 0 0 0 0 0 0 3 4.; interfaces ens3 125000 0 1 0"},
         {Net("lo 5 5"), "WRONG; Can not find any interface to measure.; interfaces"},
         {Net("lo 5 5, ens3 90 90"), "NO SAMPLE; can not get old network info of any interface."}});
    // Without new baselines a new one waits, and one that fell starts anew with the next ones.
    Replay(pass(false),
           {{Net("ens3 92 92, new 1 1"), "interfaces ens3 125000 125000 1 1"},
            {Net("ens3 1 92, new 2 1"), "NO SAMPLE; " + fell +
                                            "; can not get old network info of any interface.; "
                                            "interfaces"}});
    Replay(pass(), {{Net("ens3 9 92, new 3 1"),
                     "NO SAMPLE; can not get old network info of any interface."},
                    {Net("ens3 11 92, new 5 1"), "interfaces ens3 125000 0 1 0 new 125000 0 1 0"}});
    const auto by_name = [&](const char* name) {
        return See([&] { return m->GetNetworkMonitorInfo(&out.interface, name, 1, false, log); });
    };
    EXPECT_EQ(by_name("new"), "interface 1 0 0 0 - -");
    EXPECT_EQ(by_name("en").rfind("WRONG", 0), 0U);
    kernel.Fail(KernelCall::Read, 1, EIO, 70);
    EXPECT_EQ(SEE(m->CalcNetworkMonitorInfo(1, true, nullptr)), "FAILED; interfaces");
}

TEST_F(Strict, FilesBeyondTheBufferOfTheCompatibleReading) {
    const auto after = [](uint64_t seconds) {
        std::vector<Core> cores;
        for (uint64_t i = 0; i < 1024; ++i) {
            const uint64_t busy = i % 100;
            cores.push_back({"cpu" + std::to_string(i), busy * seconds, (100 - busy) * seconds});
        }
        return KernelFiles{{"/proc/stat", StatText(cores)}};
    };
    Choose(after(1));
    EXPECT_EQ(AFTER(after(2), m->CalcCPUMonitorInfoForTinyCycle(true, log)), "tiny cpu 1024 49776");
}

TEST_F(Strict, InterfacesThatAreNamedAndTheTinyCycles) {
    const char* names[] = {"", "eth10", nullptr, "lo"};
    Boot(Net("eth1 0 0, eth10 0 0, lo 0 0, em1 0 0"), Net("ens5 0 0", "", "/proc/1/net/dev"));
    EXPECT_EQ(SEE(m->SetNetworkInterfaces(names, 4, log)), "");
    EXPECT_EQ(m->SetStrictReading(true, nullptr), COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    SEE(0);
    const auto tiny = [&] { return m->CalcNetworkMonitorInfoForTinyCycle(1, true, log); };
    const auto of_process = [&] {
        return m->CalcProcessNetworkMonitorInfoForTinyCycle(PID, 1, true, log);
    };
    EXPECT_EQ(AFTER(Net("eth1 9 9, lo 7 7, eth10 3 5"), m->CalcNetworkMonitorInfo(1, true, log)),
              "network 7 7 0 0 lo lo; interfaces lo 875000 875000 7 7 eth10 375000 625000 3 5");
    Replay(tiny, {{{}, "tiny network 3 5 3 5 eth10 eth10"},
                  {Net("eth1 9 9"),
                   "WRONG; Can not find any interface to measure.; tiny network 0 0 0 0 - -"}});
    EXPECT_EQ(See([&] { return m->SetNetworkInterfaces(nullptr, 1, log); }),
              "network 0 0 0 0 - -; interfaces");
    Replay(tiny, {{Net("eth1 9 12, em1 9 9"), "tiny network 0 3 0 3 eth1 eth1"},
                  {Net("eth1 9 12, em1 11 9"), "tiny network 2 0 2 0 em1 eth1"}});
    const auto process = [](const std::string& list) { return Net(list, "", "/proc/1/net/dev"); };
    Replay(of_process,
           {{{}, "NO SAMPLE; can not get old network info of any interface."},
            {process("lo 5 5, ens5 2 1"), "process network 2 1 2 1 ens5 ens5"},
            {process("other 1 1"),
             "NO SAMPLE; can not get old network info of any interface.; process network 0 0 0 0 - "
             "-"}});
    EXPECT_EQ(AFTER(Net("x 1 1", "", "/proc/2/net/dev"),
                    m->CalcProcessNetworkMonitorInfoForTinyCycle(2, 1, true, nullptr)),
              "NO SAMPLE");
    kernel.Fail(KernelCall::Open, 1, EMFILE);
    tiny();
    kernel.Fail(KernelCall::Open, 1, EMFILE);
    EXPECT_EQ(SEE(m->CalcNetworkMonitorInfoForTinyCycle(1, true, nullptr)),
              "FAILED; tiny network 0 0 0 0 - -");
}

TEST_F(Strict, IsLeftBehindWhole) {
    Choose(Stat("cpu0 0 0"), Net("ens3 0 0, eth0 0 0"));
    kernel.Write(Stat("cpu0 5 5"));
    EXPECT_EQ(SEE(m->CalcCPUMonitorInfo(true, log)), "cpu 1 50; cores cpu0 50");
    EXPECT_EQ(SEE(m->SetStrictReading(false, log)), "cpu 1 0; cores -; interfaces -");
    std::vector<CPUCoreInfo> cores(1);
    EXPECT_EQ(SEE(m->GetCPUCoreInfo(cores, log)),
              "WRONG; cores are kept one by one with the strict reading only.");
    std::vector<NetworkInterfaceInfo> interfaces(1);
    EXPECT_EQ(SEE(m->GetNetworkInterfaceInfo(interfaces, log)),
              "WRONG; interfaces are kept one by one with the strict reading only.");
    EXPECT_TRUE(cores.empty() && interfaces.empty());
    EXPECT_EQ(AFTER(Stat("cpu0 5 6, cpu1 0 0"), m->CalcCPUMonitorInfo(true, nullptr)),
              "WRONG; cpu 2 0; tiny cpu 2 0");
}

}  // namespace
}  // namespace corvane_test
