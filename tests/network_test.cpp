// Network interfaces of the machine and of a process's namespace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "capturing_log.h"
#include "corvane_error_code.h"
#include "fake_kernel.h"
#include "kernel_texts.h"
#include "monitor_test_peer.h"

namespace corvane_test {
namespace {

using CorvaneCommon::NetworkInfo;
using CorvaneCommon::NetworkInfoResult;
using testing::ElementsAre;

constexpr auto CHANGED = COMMON_ERR_INVALID_ARGUMENTS;
constexpr auto FAILED = COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
constexpr auto NO_SAMPLE = COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE;
constexpr const char* HOST_FILE = "/proc/net/dev";
constexpr const char* PROCESS_FILE = "/proc/17/net/dev";
constexpr uint64_t MEGABIT = 125000;  // bytes

/// A line with totals in megabits and as many packets.
std::string Nic(const std::string& name, uint64_t input, uint64_t output) {
    return NicLine(name, input * MEGABIT, input, output * MEGABIT, output);
}

/// Megabits and packets, both received then sent, and whose megabits they are.
std::string Text(const NetworkInfoResult& r) {
    return std::to_string(r.input_bytes_mb) + " " + std::to_string(r.output_bytes_mb) + " " +
           std::to_string(r.input_packets) + " " + std::to_string(r.output_packets) + " " +
           r.input_nic_name + " " + r.output_nic_name;
}

std::string Missing(const std::string& nic) {
    return "Can not find " + nic + ", maybe network changed, reinit network info.";
}

enum Cycle { NORMAL, TINY, PROCESS };
constexpr Cycle CYCLES[] = {NORMAL, TINY, PROCESS};

struct Step {
    std::string text;
    int32_t status;
    std::vector<std::string> names;
    std::vector<std::string> records;
};

/// A machine with process 17 in a namespace that looks the same.
struct Machine {
    explicit Machine(const std::string& text) : kernel({{HOST_FILE, text}, {PROCESS_FILE, text}}) {}
    void Write(const std::string& text) { kernel.Write({{HOST_FILE, text}, {PROCESS_FILE, text}}); }
    int32_t Pass(Cycle cycle, uint64_t seconds = 1, bool refresh = true, uint32_t pid = 17) {
        return cycle == NORMAL ? monitor->CalcNetworkMonitorInfo(seconds, refresh, &log)
               : cycle == TINY ? monitor->CalcNetworkMonitorInfoForTinyCycle(seconds, refresh, &log)
                               : monitor->CalcProcessNetworkMonitorInfoForTinyCycle(pid, seconds,
                                                                                    refresh, &log);
    }
    int32_t Copy(Cycle cycle, NetworkInfoResult* result) {
        return cycle == NORMAL ? monitor->GetNetworkMonitorInfo(result, &log)
               : cycle == TINY ? monitor->GetNetworkMonitorInfoForTinyCycle(result, &log)
                               : monitor->GetProcessNetworkMonitorInfoForTinyCycle(result, &log);
    }
    std::string Read(Cycle cycle) {
        NetworkInfoResult result;
        EXPECT_EQ(Copy(cycle, &result), 0);
        return Text(result);
    }
    /// The stored sample of eth1: peaks and base, in megabits.
    std::string Sample(Cycle cycle) {
        const NetworkInfo& sample = samples[cycle]->at("eth1");
        return std::to_string(sample.max_network_input_bytes_mb) + " " +
               std::to_string(sample.max_network_output_bytes_mb) + " since " +
               std::to_string(sample.input_bytes / MEGABIT);
    }
    void Run(const std::vector<Step>& steps, const std::function<int32_t()>& action) {
        for (const Step& step : steps) {
            SCOPED_TRACE(step.text);
            Write(step.text);
            EXPECT_EQ(action(), step.status);
            EXPECT_EQ(monitor.network_nic_name, step.names);
            EXPECT_EQ(log.TakeTexts(), step.records);
        }
    }

    FakeKernel kernel;
    Monitor monitor;
    CapturingLog log;
    std::map<std::string, NetworkInfo>* samples[3] = {
        &monitor.old_network_info, &monitor.tiny_old_network_info, &monitor.proc_old_network_info};
};

TEST(Network, DiscoveryKeepsNamesByTheirLetters) {
    using namespace std::string_literals;
    std::string many = NetDevText({});
    for (const char* const name : {"lo", "eth0", "veth12ab", "gem0", "em1", "bond0.7", "ens5",
                                   "ib0", "wlan0", "ovs-system", "br-eth1", "tun0", "ETH0"}) {
        many += "  " + NicLine(name, 1, 2, 3, 4);
    }
    const std::string eth0 = Nic("eth0", 1, 1);
    const std::string no_colon = "the file: /proc/net/dev has wrong format of data, buf: ";
    Machine m("");
    const auto discover = [&] { return m.monitor.InitDefaultNetWorkInfo(&m.log); };
    m.Run({{many, 0, {"eth0", "veth12ab", "gem0", "em1", "bond0.7", "ovs-system", "br-eth1"}, {}},
           {"eth0:1 2 3 4 5 6 7 8 9 10", 0, {"eth0"}, {}},  // ten numbers will do, and no newline
           {"\teth0: -2 99999999999999999999999 3 4 5 6 7 8 9 10\n", 0, {"\teth0"}, {}},
           {"lo: 1 2 3 4 5 6 7 8 9 10 em\n", 0, {"lo"}, {}},
           {std::string(200, 'x') + "eth: 1 2 3 4 5 6 7 8 9 10\n", 0, {std::string(127, 'x')}, {}},
           {eth0 + "eth1 1 2\n" + eth0, CHANGED, {"eth0"}, {no_colon + "eth1 1 2."}},
           {eth0 + "eth\0x: 1\n"s, CHANGED, {"eth0"}, {no_colon + "eth."}},
           {eth0 + "eth1: 2 3\n", FAILED, {"eth0"}, {"sscanf failed, buf:  2 3"}},
           {"eth0:1: 5 6\n", FAILED, {}, {"sscanf failed, buf: 1: 5 6"}}},  // an alias
          discover);
    for (auto* const samples : m.samples) {
        EXPECT_STREQ((*samples)["gem0"].nic_name, "gem0");
        EXPECT_EQ((*samples)["gem0"].output_packets, 4U);
        EXPECT_EQ((*samples)["\teth0"].input_bytes, UINT64_MAX - 1);
        EXPECT_EQ((*samples)["\teth0"].input_packets, UINT64_MAX);
    }
    m.kernel.Remove(HOST_FILE);
    EXPECT_EQ(discover(), FAILED);
    m.kernel.MakeFolder(HOST_FILE);
    EXPECT_EQ(discover(), FAILED);
    EXPECT_THAT(
        m.log.TakeTexts(),
        ElementsAre("open /proc/net/dev failed, error_msg: No such file or directory.",
                    "getline from /proc/net/dev failed, the failbit is 1 and the badbit is 1"));
}

TEST(Network, RatesTruncatePerFigureAndAreZeroForAFall) {
    struct Case {
        std::string line;
        uint64_t seconds;
        std::string rates;
    };
    constexpr uint64_t WRAP = uint64_t{1} << 61;  // bytes, of 2^64 bits
    const Case cases[] = {
        {NicLine("eth1", 1000000, 10, 1000000, 10), 1, "0 0 0 0 "},
        {NicLine("eth1", 2000000, 109, 1124999, 20), 1, "8 0 99 10 "},
        {NicLine("eth1", 13500000, 109, 2249999, 19), 10, "10 0 9 0 "},
        {NicLine("eth1", UINT64_MAX, 11, 1000001, 11), UINT64_MAX, "0 0 0 0 "},
        {NicLine("eth1", 1125000 + WRAP, 10, 1000000 + WRAP, 10), 1, "1 0 0 0 "},
        {NicLine("eth1", 999999, 15, 1250000, 9), 1, "0 2 5 0 "},
        {NicLine("eth1", 1125000, 9, 999999, 16), 1, "1 0 0 6 "},
    };
    Machine m(cases[0].line);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.rates);
        m.Write(c.line);
        m.monitor->ClearNetWorkPhasedCacheValue(&m.log);
        NetworkInfoResult result;
        EXPECT_EQ(m.monitor->GetNetworkMonitorInfo(&result, "eth1", c.seconds, false, &m.log), 0);
        EXPECT_EQ(Text(result), c.rates + " ");
        for (const Cycle cycle : {TINY, PROCESS}) {
            EXPECT_EQ(m.Pass(cycle, c.seconds, false), 0);
            EXPECT_EQ(m.Read(cycle), c.rates + "eth1 eth1");
        }
    }
}

TEST(Network, PeaksAndBaselines) {
    struct Case {
        uint64_t total;  // megabits
        bool refresh;
        const char* normal;  // result and sample
        const char* tiny;
    };
    const Case cases[] = {
        {30, false, "30 30 0 0 eth1 eth1, 30 30 since 0", "30 30 30 30 eth1 eth1, 30 30 since 0"},
        {20, false, "30 30 0 0 eth1 eth1, 30 30 since 0", "20 20 20 20 eth1 eth1, 30 30 since 0"},
        {70, true, "70 70 0 0 eth1 eth1, 70 70 since 70", "70 70 70 70 eth1 eth1, 70 70 since 70"},
        {80, true, "70 70 0 0 eth1 eth1, 70 70 since 80", "10 10 10 10 eth1 eth1, 10 10 since 80"},
        // A driver that shows 0 once, then counts on: a rise that never was.
        {0, true, "70 70 0 0 eth1 eth1, 70 70 since 0", "0 0 0 0 eth1 eth1, 0 0 since 0"},
        {80, true, "80 80 0 0 eth1 eth1, 80 80 since 80", "80 80 80 80 eth1 eth1, 80 80 since 80"},
    };
    Machine m(Nic("eth1", 0, 0));
    for (const Case& c : cases) {
        m.Write(Nic("eth1", c.total, c.total));
        for (const Cycle cycle : CYCLES) {
            EXPECT_EQ(m.Pass(cycle, 1, c.refresh), 0);
            EXPECT_EQ(m.Read(cycle) + ", " + m.Sample(cycle), cycle == NORMAL ? c.normal : c.tiny);
        }
    }
    EXPECT_STREQ(m.samples[TINY]->at("eth1").nic_name, "");  // lost: the key keeps it
    m.monitor->ClearNetWorkPhasedCacheValue(&m.log);
    EXPECT_EQ(m.Read(NORMAL) + m.Sample(NORMAL), "0 0 0 0  0 0 since 80");
    EXPECT_EQ(m.Read(TINY) + m.Sample(TINY), "80 80 80 80 eth1 eth180 80 since 80");
    m.monitor->ClearProcessNetWorkPhasedCacheValueForTinyCycle(&m.log);
    for (const Cycle cycle : {TINY, PROCESS}) {
        EXPECT_EQ(m.Read(cycle) + m.Sample(cycle), "0 0 0 0  0 0 since 80");
    }
}

TEST(Network, TheBusiestInterfaceOrEth1Alone) {
    Machine m(Nic("eth0", 0, 0) + Nic("eth1", 0, 0) + Nic("eth10", 0, 0));
    const auto pass = [&](const std::string& eth0_and_1, const std::string& tiny) {
        m.Write(eth0_and_1 + Nic("eth10", 7, 7));  // not the one that the tiny cycles watch
        for (const Cycle cycle : CYCLES) {
            EXPECT_EQ(m.Pass(cycle), 0);
            EXPECT_TRUE(cycle == NORMAL || m.Read(cycle) == tiny) << m.Read(cycle);
        }
        return m.Read(NORMAL);
    };
    // Each direction has a holder of its own; a tie leaves it, a higher rate takes it.
    EXPECT_EQ(pass(Nic("eth0", 900, 10) + Nic("eth1", 300, 20), "300 20 300 20 eth1 eth1"),
              "900 20 0 0 eth0 eth1");
    EXPECT_EQ(pass(Nic("eth0", 900, 10) + Nic("eth1", 1200, 20), "900 0 900 0 eth1 eth1"),
              "900 20 0 0 eth0 eth1");
    EXPECT_EQ(pass(Nic("eth0", 900, 31) + Nic("eth1", 2101, 20), "901 0 901 0 eth1 eth1"),
              "901 21 0 0 eth1 eth0");
    m.monitor->ClearNetWorkPhasedCacheValue(&m.log);
    EXPECT_EQ(pass(Nic("eth0", 905, 40) + Nic("eth1", 2106, 29), "5 9 5 9 eth1 eth1"),
              "5 9 0 0 eth0 eth0");  // a tie within one pass
}

TEST(Network, InterfacesComeAndGo) {
    const std::string eth0 = Nic("eth0", 1, 1);
    const std::string eth1 = Nic("eth1", 1, 1);
    const std::string eth10 = "eth10: 1 2 3 4 5 6 7 8 9 10";
    const std::string cut = "eth1: 1 2 3 4 5 6 7 8 9 10";
    const std::string unparsed = "sscanf failed, buf: " + eth10 + ".";
    for (const Cycle cycle : CYCLES) {
        SCOPED_TRACE(cycle);
        Machine m(eth0 + eth1);
        m.Run({{eth1 + eth0, CHANGED, {"eth1", "eth0"}, {Missing("eth1")}},  // only the order
               {eth0, CHANGED, {"eth0"}, {Missing("eth1")}},
               {eth0 + eth1, 0, {"eth0"}, {}},  // a new one is not noticed until another goes
               {eth1, CHANGED, {"eth1"}, {Missing("eth0")}},
               {Nic("veth1", 1, 1), 0, {"eth1"}, {}},
               {eth1 + eth10, 0, {"eth1"}, {}},
               {eth10 + "\n" + eth1, FAILED, {"eth1"}, {unparsed}},  // and again
               {eth10 + "\n" + eth1, FAILED, {"eth1"}, {unparsed}},
               {cut, CHANGED, {"eth1"}, {cut + " Can not find \\n after eth1."}},
               {"", CHANGED, {}, {Missing("eth1")}},
               {eth0 + eth1, 0, {}, {}}},
              [&] { return m.Pass(cycle); });
        // Whichever cycle finds names anew, all three lose bases and peaks and keep results.
        EXPECT_EQ(m.monitor.InitDefaultNetWorkInfo(nullptr), 0);
        m.Write(eth0 + Nic("eth1", 31, 41));
        for (const Cycle each : CYCLES) {
            EXPECT_EQ(m.Pass(each), 0);
        }
        m.Write(Nic("eth1", 99, 99));
        EXPECT_EQ(m.Pass(cycle), CHANGED);
        for (const Cycle each : CYCLES) {
            const std::string packets = each == NORMAL ? "0 0" : "30 40";
            EXPECT_EQ(m.Read(each), "30 40 " + packets + " eth1 eth1");
            EXPECT_EQ(m.Sample(each), "0 0 since 99");
            EXPECT_EQ(m.samples[each]->count("eth0"), 1U);  // stays behind
        }
        m.log.TakeTexts();
        m.kernel.Fail(KernelCall::Open, 1, EACCES);
        EXPECT_EQ(m.Pass(cycle), FAILED);
        m.samples[cycle]->clear();
        EXPECT_EQ(m.Pass(cycle), NO_SAMPLE);
        const bool process = cycle == PROCESS;
        const std::string file = process ? PROCESS_FILE : HOST_FILE;
        EXPECT_THAT(
            m.log.TakeTexts(),
            ElementsAre("fopen " + file + " failed, error_msg: Permission denied.",
                        "ReadFromFile failed, file: " + file + ".",
                        process ? "GetProcessRawNetworkInfo failed, ret: -3353."
                                : "GetRawNetWorkInfo failed, ret: -3353.",
                        process ? "can not get old network info from m_proc_old_network_info, "
                                  "nic_name: eth1."
                                : "can not get old network info, nic_name: eth1.",
                        "CalcNetworkInfo failed, ret: -3609, nic_name: eth1."));
    }
}

TEST(Network, AProcessHasABaseOfItsOwnAndTheMachinesNames) {
    const std::string eth0 = Nic("eth0", 1, 1);
    Machine m(eth0 + Nic("eth1", 100, 0));
    m.kernel.Write(PROCESS_FILE, eth0 + Nic("eth1", 130, 7));
    EXPECT_EQ(m.Pass(PROCESS), 0);
    EXPECT_EQ(m.Read(PROCESS), "30 7 30 7 eth1 eth1");
    EXPECT_EQ(m.Read(TINY) + m.Sample(TINY), "0 0 0 0  0 0 since 100");
    // Another pid goes on from the first one's sample.
    m.kernel.Write("/proc/18/net/dev", eth0 + Nic("eth1", 132, 2));
    EXPECT_EQ(m.Pass(PROCESS, 1, true, 18), 0);
    EXPECT_EQ(m.Read(PROCESS), "2 0 2 0 eth1 eth1");
    // A namespace without the machine's interfaces fails each time; its names are never adopted.
    m.kernel.Write(PROCESS_FILE, Nic("eth1", 500, 500));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(m.Pass(PROCESS), CHANGED);
        EXPECT_THAT(m.log.TakeTexts(), ElementsAre(Missing("eth0")));
        EXPECT_THAT(m.monitor.network_nic_name, ElementsAre("eth0", "eth1"));
        EXPECT_EQ(m.Sample(PROCESS), "0 0 since 100");
    }
}

TEST(Network, OneInterfaceIsMeasuredAgainstTheNormalBaseline) {
    Machine m(Nic("eth0", 0, 0) + Nic("eth1", 0, 0));
    NetworkInfoResult result;
    LogCategory* log = &m.log;
    const auto get = [&](const std::string& text, const char* name, uint64_t seconds = 1) {
        m.Write(text);
        return m.monitor->GetNetworkMonitorInfo(&result, name, seconds, seconds == 8, log);
    };
    const std::string now = Nic("eth0", 4, 4) + Nic("eth1", 80, 8);
    EXPECT_EQ(get(now, "eth1", 2), 0);
    EXPECT_EQ(Text(result), "40 4 40 4  ");
    EXPECT_EQ(get(now, "eth1", 8), 0);
    EXPECT_EQ(Text(result), "40 4 10 1  ");  // bytes: the peaks; packets: now
    EXPECT_EQ(m.Read(NORMAL), "0 0 0 0  ");
    EXPECT_EQ(m.Pass(NORMAL), 0);
    EXPECT_EQ(m.Read(NORMAL), "40 4 0 0 eth1 eth0");
    m.monitor.network_nic_name.clear();
    EXPECT_EQ(get(now, "eth9"), CHANGED);
    EXPECT_THAT(m.monitor.network_nic_name, ElementsAre("eth0", "eth1"));
    EXPECT_EQ(get("eth1: 1", "eth1"), CHANGED);
    EXPECT_EQ(get("head\neth1: 1\neth0: 1\n", "eth1"), FAILED);
    m.kernel.Fail(KernelCall::Open, 1, EACCES);
    EXPECT_EQ(get(now, "eth1"), FAILED);
    EXPECT_EQ(Text(result), "40 4 10 1  ");
    EXPECT_EQ(get(Nic("lo", 1, 1), "lo"), NO_SAMPLE);
    EXPECT_EQ(Text(result), "0 0 0 0  ");
    EXPECT_THAT(m.log.TakeTexts(),
                ElementsAre("(null) " + Missing("eth9"),
                            "GetNetworkInfo failed, ret: -281, nic_name: eth9.",
                            "eth1: 1 Can not find \\n after eth1.",
                            "GetNetworkInfo failed, ret: -281, nic_name: eth1.",
                            "sscanf failed, buf: head\neth1: 1.",
                            "GetNetworkInfo failed, ret: -3353, nic_name: eth1.",
                            "fopen /proc/net/dev failed, error_msg: Permission denied.",
                            "ReadFromFile failed, file: /proc/net/dev.",
                            "GetRawNetWorkInfo failed, ret: -3353.",
                            "GetNetworkInfo failed, ret: -3353, nic_name: eth1.",
                            "can not get old network info, nic_name: lo.",
                            "CalcNetworkInfo failed, ret: -3609, nic_name: lo."));
    log = nullptr;
    // It is read from the first place its name stands at.
    const std::string rest = " 0 0 0 0 0 0 0 0 0\n";
    const std::string eth1 = "eth1: 0" + rest;
    EXPECT_EQ(get("veth1:11250000" + rest + eth1, "eth1"), 0);
    EXPECT_EQ(Text(result), "10 0 0 0  ");
    for (const char* const hides : {"veth1a: 7", "eth10: 7", "eth1.1: 7"}) {
        EXPECT_EQ(get(hides + rest + eth1, "eth1"), FAILED);
    }
    EXPECT_EQ(get(eth1, ""), CHANGED);
    EXPECT_EQ(get(eth1, std::string(200, 'e').c_str()), CHANGED);
    // Names that no interface has, up to the buffer's last character.
    EXPECT_EQ(get("eth1: 7\n 8" + rest, "7\n"), NO_SAMPLE);
    EXPECT_EQ(get(std::string(40959 - 7, ' ') + "eth0:7\n", "eth0:7\n"), FAILED);
}

TEST(Network, BadArgumentsAreRefused) {
    Machine m(Nic("eth1", 0, 0));
    NetworkInfoResult result;
    for (const int32_t status :
         {m.Pass(NORMAL, 0), m.Pass(PROCESS, 0), m.Copy(NORMAL, nullptr), m.Copy(TINY, nullptr),
          m.Copy(PROCESS, nullptr), m.Pass(PROCESS, 0, true, 0),
          m.Pass(PROCESS, 0, true, UINT32_MAX),
          m.monitor->GetProcessRawNetworkInfo(nullptr, 8, 0, &m.log),
          m.monitor->GetProcessRawNetworkInfo(nullptr, 8, 17, &m.log),
          m.monitor.GetRawNetworkInfo(nullptr, 0U, &m.log),
          m.monitor.GetNetworkInfo(nullptr, nullptr, &m.log),
          m.monitor->GetNetworkMonitorInfo(nullptr, nullptr, 1, false, &m.log),
          m.monitor->GetNetworkMonitorInfo(&result, "eth1", 0, false, &m.log),
          m.monitor.CalcNetworkInfo(nullptr, nullptr, "eth1", 1U, false, &m.log)}) {
        EXPECT_EQ(status, COMMON_ERR_INVALID_ARGUMENTS);
    }
    const std::string no_seconds = "0>=time interval, time interval: 0.";
    const std::string no_result = "network_info_result is NULL, network_info_result: (nil).";
    const std::string no_buffer =
        "raw_network_info is NULL or raw_network_info_length is 0, raw_network_info: (nil), "
        "raw_network_info_length: ";
    EXPECT_THAT(
        m.log.TakeTexts(),
        ElementsAre(
            no_seconds, no_seconds, no_result, no_result, no_result,
            "0 >= pid or pid not exist pid: 0.", "0 >= pid or pid not exist pid: -1.",
            "illegal pid <= 0, pid: 0.", no_buffer + "8.", no_buffer + "0.",
            "nic_name is NULL or nic_name's length is 0 or network_info is NULL, nic_name: (nil), "
            "network_info: (nil).",
            "nic_name is NULL or nic_name's length is 0 or network_info_result is NULL or 0>=time "
            "interval, nic_name: (nil), network_info_result: (nil), time interval: 1.",
            testing::EndsWith(", time interval: 0."),
            "now_network_info is NULL or network_info_result is NULL or 0>=time interval, "
            "now_network_info: (nil), network_info_result: (nil), time interval: 1."));
}

TEST(Network, ManyInterfacesAreMeasuredUpToTheBufferAndNeverBeyond) {
    for (const size_t count : {300U, 341U, 1023U, 1100U}) {
        SCOPED_TRACE(count);
        std::string text;
        for (size_t i = 0; i < count; ++i) {  // each as long as the kernel's own
            text += std::string(90, ' ') + Nic("veth" + std::to_string(i), 0, 0);
        }
        Machine m(text);
        EXPECT_EQ(m.monitor.InitDefaultNetWorkInfo(&m.log), count < 1024 ? 0 : CHANGED);
        EXPECT_THAT(m.log.TakeTexts(),
                    testing::Each("maybe deadloop, m_network_nic_name.size=1024"));
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(m.Pass(NORMAL), count == 300 ? 0 : CHANGED);
            EXPECT_EQ(m.monitor.network_nic_name.size(), std::min(count, size_t{1024}));
            EXPECT_LE(m.log.TakeTexts().size(), 2U);
        }
    }
}

}  // namespace
}  // namespace corvane_test
