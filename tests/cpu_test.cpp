// CPU of the machine and its cores.
#include <cerrno>

#include "host.h"
#include "monitor_physical_util_internal.h"

namespace corvane_test {
namespace {

const std::string REINIT = "WRONG; maybe cpu changed, reinit cpu info.; ";

std::string Missing(const std::string& core) {
    return "WRONG; (null) Can not find " + core + ", maybe cpu changed, reinit cpu info.; ";
}

KernelFiles Text(const std::string& text) {
    return {{"/proc/stat", text}};
}

class Cpu : public HostTest {
protected:
    const Call normal = [this] { return m->CalcCPUMonitorInfo(true, log); };
    const Call tiny = [this] { return m->CalcCPUMonitorInfoForTinyCycle(true, log); };
    const Call peek = [this] { return m->CalcCPUMonitorInfoForTinyCycle(false, log); };
};

TEST_F(Cpu, BusyShareIsRoundedUp) {
    using CorvaneCommon::CeilQuotient;
    EXPECT_EQ(CeilQuotient<int32_t>(INT32_MAX, 1), INT32_MAX);
    EXPECT_EQ(CeilQuotient<int32_t>(INT32_MAX + uint64_t{1}, 1), INT32_MIN);
    EXPECT_EQ(CeilQuotient<int64_t>(uint64_t{1} << 63, 1), INT64_MIN);
    Boot(Stat("cpu0 5 5"));
    Replay(tiny, {{Stat("cpu0 5 5"), ""},  // no tick elapsed
                  {Stat("cpu0 6 1004"), "tiny cpu 1 1"},
                  {Stat("cpu0 1005 1005"), "tiny cpu 1 100"},
                  {Text("cpu0 1006 2 3 1005 100 4 5\n"), "tiny cpu 1 14"},  // iowait is not busy
                  {Text("cpu0 1006 2 3 1005 200 4 5\n"), "tiny cpu 1 0"},
                  // Counters that fall wrap: more busy than elapsed, a product beyond 64 bits, a
                  // quotient beyond 63 bits.
                  {Text("cpu0 1026 2 3 995 200 4 5\n"), "tiny cpu 1 200"},
                  {Text("cpu0 1025 2 3 1096 200 4 5\n"), "tiny cpu 1 4123168608"},
                  {Text("cpu0 1024 2 3 1098 200 4 5\n"), "tiny cpu 1 0"}});
}

TEST_F(Cpu, Discovery) {
    const std::string numbers = " 1 2 3 4 5 6 7";
    const std::string c3000(3000, 'c');
    std::string endless;
    for (int i = 0; i < 5000; ++i) {
        endless += CPULine("cpu" + std::to_string(i), 1, 1);
    }
    Boot(Stat("cpu0 1 2, cpu2 3 4, cpu10 5 6"));
    for (const auto* const samples : {&inside->old_cpu_info, &inside->old_tiny_cpu_info}) {
        EXPECT_EQ(samples->size(), 4U);
        EXPECT_EQ(samples->at("cpu").user + samples->at("cpu10").idle, 9U + 6U);
    }
    const Call discover = [this] { return inside->InitDefaultCPUInfo(log); };
    Replay(
        discover,
        {{Text(""), "cpu 0 0; tiny cpu 0 0"},
         {Text("cpu0" + numbers), "cpu 1 0; tiny cpu 1 0"},  // an old kernel's; no newline
         {Text("cpu0" + numbers + "\ncpu1" + numbers + "\n\ncpu2 1 2 3\ncpu3" + numbers),
          "FAILED; sscanf failed, buf: cpu2 1 2 3; cpu 2 0; tiny cpu 2 0"},
         {Text("the cpus\n"), "FAILED; sscanf failed, buf: the cpus; cpu 0 0; tiny cpu 0 0"},
         {Text(c3000 + "cpu" + numbers), "FAILED; sscanf failed, buf: " + c3000 + "cpu" + numbers},
         {Text(endless),
          "WRONG; maybe deadloop, m_cpu_core_name.size=4096; cpu 4096 0; tiny cpu 4096 0"}});
    kernel.MakeFolder("/proc/stat");
    EXPECT_EQ(See(discover),
              "FAILED; getline from /proc/stat failed, the failbit is 1 and the badbit is 1; "
              "cpu 0 0; tiny cpu 0 0");
    kernel.Remove("/proc/stat");
    EXPECT_EQ(See(discover),
              "FAILED; open /proc/stat failed, error_msg: No such file or directory.");
}

TEST_F(Cpu, CoresComeAndGo) {
    const std::string x123(123, 'x');
    const std::string too_long =
        "WRONG; the size of now_cpu_info.cpu_core_name is not enough, buf: cpu0";
    Boot(Stat("cpu0 0 0, cpu1 0 0"));
    Replay(normal,
           {{Stat("cpu0 90 10, cpu1 70 30"), "cpu 2 160"},
            {Stat("cpu0 100 100, cpu1 70 130"), ""},  // the peak stays
            {Stat("cpu0 100 100"), Missing("cpu1") + "cpu 1 0; tiny cpu 1 0"},
            {Stat("cpu0 150 150"), "cpu 1 50"},
            {Stat("cpu0 150 150, cpu1 9 9, cpu5 9 9"), REINIT + "cpu 3 0; tiny cpu 3 0"},
            {Stat("cpu0 160 240, cpu1 29 89, cpu5 39 79"), "cpu 3 60"},
            {Stat("cpu1 29 89, cpu0 160 240, cpu5 39 79"), Missing("cpu1") + "cpu 3 0"},  // order
            {Text(""), Missing("cpu1") + "cpu 0 0; tiny cpu 0 0"},
            {Text("intr 1\n"), ""},
            {Stat("cpu0 5 5"), REINIT + "cpu 1 0; tiny cpu 1 0"},
            {Text("cpu0 6 0 0 6 0 0 0"), "WRONG; cpu0 6 0 0 6 0 0 0 Can not find \\n after cpu0."},
            {Text("cpu0\n"), too_long + "."},
            {Text("cpu0 x\n"), "FAILED; sscanf failed, file: /proc/stat, buf: cpu0 x."},
            {Text("cpu0" + x123 + " 15 0 0 5 0 0 0\n"), "cpu 1 100"},  // the longest name
            {Text("cpu0" + x123 + "x 1 2\n"), too_long + x123 + "x 1 2."},
            // A core that goes is mixed with one that holds its name.
            {Stat("cpu0 0 0, cpu1 0 0"), REINIT + "cpu 2 0; tiny cpu 2 0"},
            {Stat("cpu0 0 100, cpu10 40 60"), "cpu 2 40"}});
}

TEST_F(Cpu, TheTinyCycleFollowsTheLatestFigureOnItsOwnBaselines) {
    Boot(Stat("cpu0 0 0"));
    Replay(tiny, {{Stat("cpu0 90 10"), "tiny cpu 1 90"},
                  {Text(""), Missing("cpu0") + "cpu 0 0; tiny cpu 0 0"},
                  {Text(""), ""},
                  {Stat("cpu0 0 0"), REINIT + "cpu 1 0; tiny cpu 1 0"}});
    Replay(peek, {{Stat("cpu0 30 70"), "tiny cpu 1 30"}, {Stat("cpu0 50 50"), "tiny cpu 1 50"}});
    EXPECT_EQ(SEE(m->CalcCPUMonitorInfo(false, log)), "cpu 1 50");
    Replay(normal, {{Stat("cpu0 70 30"), "cpu 1 70"}});
    EXPECT_EQ(SEE(m->ClearCPUPhasedCacheValueForTinyCycle(log)), "tiny cpu 1 0");
    EXPECT_EQ(SEE(m->ClearCPUPhasedCacheValue(log)), "cpu 1 0");
    EXPECT_EQ(inside->old_cpu_info["cpu0"].max_cpu_utilization, 0U);
}

TEST_F(Cpu, OneLineIsMeasuredAgainstTheNormalBaseline) {
    const auto get = [&](const char* name, bool refresh, const KernelFiles& files = {}) {
        return AFTER(files, m->GetCPUMonitorInfo(&out.core, name, refresh, log));
    };
    const std::string now = StatText({{"cpu0", 60, 40}, {"cpu1", 20, 80}});
    const std::string failed = "; GetCPUInfo failed, ret: -281, cpu_core_name: cpu";
    Boot(Stat("cpu0 0 0, cpu1 0 0"));
    EXPECT_EQ(get("cpu", false, Text(now)), "core 2 40");
    EXPECT_EQ(get("cpu1", true), "core 2 20");
    EXPECT_EQ(get("cpu1", true), "core 2 20");  // no tick since, but the line's peak stands
    EXPECT_EQ(See(normal), "cpu 2 60");
    EXPECT_EQ(get("cpu1", false), "core 2 0");  // the cycle has overwritten it
    EXPECT_EQ(get("cpu9", true), "WRONG; " + now +
                                     " Can not find cpu9, maybe cpu changed, reinit cpu info." +
                                     failed + "9.; cpu 2 0; core 2 0");
    EXPECT_EQ(get("intr", true),
              "FAILED; sscanf failed, file: /proc/stat, buf: intr 12345 0 0.; GetCPUInfo failed, "
              "ret: -3353, cpu_core_name: intr.; core 2 0");
    EXPECT_EQ(get("cpu", true, Text("cpu 1 2 3 4 5 6 7")),
              "WRONG; cpu 1 2 3 4 5 6 7 Can not find \\n after cpu." + failed + ".; core 2 0");
    records.accepted = LOG_PRIORITY_TRACE;
    EXPECT_EQ(get("cpu8", true, Text("cpu8 1 2 3 4 5 6 7\n")),
              "NO SAMPLE; TRACE sscanf succeed, file:/proc/stat, user:1,nice:2,system:3,idle:4,"
              "iowait:5,irq:6,softirq:7; can not get old cpu info, cpu_core_name: cpu8.; "
              "CalcCPUInfo failed, ret: -3609, cpu_core_name: cpu8.; core 2 0");
    kernel.Fail(KernelCall::Open, 1, EACCES);
    const std::string unread =
        "FAILED; fopen /proc/stat failed, error_msg: Permission denied.; ReadFromFile failed, "
        "file: "
        "/proc/stat.; GetRawCPUInfo failed, ret: -3353.";
    EXPECT_EQ(get("c", true),
              unread + "; GetCPUInfo failed, ret: -3353, cpu_core_name: c.; core 2 0");
    kernel.Fail(KernelCall::Open, 1, EACCES);
    EXPECT_EQ(See(tiny), unread);
    // Peaks rise without refresh, and a lower figure leaves them.
    records.accepted = LOG_PRIORITY_ERROR;
    Boot(Stat("cpu0 0 0"));
    EXPECT_EQ(get("cpu0", false, Stat("cpu0 80 20")), "core 1 80");
    EXPECT_EQ(get("cpu0", true, Stat("cpu0 30 70")), "core 1 80");
    EXPECT_EQ(get("cpu0", true, Stat("cpu0 129 71")), "core 1 99");
}

}  // namespace
}  // namespace corvane_test
