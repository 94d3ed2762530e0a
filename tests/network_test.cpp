// Network interfaces of the machine and of a process's namespace.
#include <cerrno>

#include "host.h"

namespace corvane_test {
namespace {

using CorvaneCommon::NetworkInfo;

/// The same table for the machine and for the process.
KernelFiles Tables(const std::string& text) {
    return {{"/proc/net/dev", text}, {"/proc/17/net/dev", text}};
}

std::string Missing(const std::string& nic) {
    return "WRONG; Can not find " + nic + ", maybe network changed, reinit network info.";
}

class Network : public HostTest {
protected:
    int32_t Normal() { return m->CalcNetworkMonitorInfo(seconds, refresh, log); }
    int32_t Tiny() { return m->CalcNetworkMonitorInfoForTinyCycle(seconds, refresh, log); }
    int32_t Process() {
        return m->CalcProcessNetworkMonitorInfoForTinyCycle(PID, seconds, refresh, log);
    }
    const Call normal = [this] { return Normal(); };
    const Call tiny = [this] { return Tiny(); };
    const Call process = [this] { return Process(); };
    const Call all = [this] { return Normal() + Tiny() + Process(); };
    const Call discover = [this] { return inside->InitDefaultNetWorkInfo(log); };

    /// Names as they were discovered.
    std::string Names() const {
        std::string names;
        for (const std::string& name : inside->network_nic_name) {
            names += name + " ";
        }
        return names;
    }

    uint64_t seconds = 1;
    bool refresh = true;
};

TEST_F(Network, DiscoveryKeepsNamesByTheirLetters) {
    using namespace std::string_literals;
    std::string many = NetDevText({});
    for (const char* const name : {"lo", "eth0", "veth12ab", "gem0", "em1", "bond0.7", "ens5",
                                   "ib0", "wlan0", "ovs-system", "br-eth1", "tun0", "ETH0"}) {
        many += "  " + NicLine(name, 1, 2, 3, 4);
    }
    const std::string eth0 = Nics("eth0 1 1");
    const std::string no_colon = "WRONG; the file: /proc/net/dev has wrong format of data, buf: ";
    const struct {
        std::string text;
        std::string names;
        std::string seen;
    } cases[] = {
        {many, "eth0 veth12ab gem0 em1 bond0.7 ovs-system br-eth1 ", ""},
        {"eth0:1 2 3 4 5 6 7 8 9 10", "eth0 ", ""},  // ten numbers will do, and no newline
        {"\teth0: -2 99999999999999999999999 3 4 5 6 7 8 9 10\n", "\teth0 ", ""},
        {"lo: 1 2 3 4 5 6 7 8 9 10 em\n", "lo ", ""},
        {std::string(200, 'x') + "eth: 1 2 3 4 5 6 7 8 9 10\n", std::string(127, 'x') + " ", ""},
        {eth0 + "eth1 1 2\n" + eth0, "eth0 ", no_colon + "eth1 1 2."},
        {eth0 + "eth\0x: 1\n"s, "eth0 ", no_colon + "eth."},
        {eth0 + "eth1: 2 3\n", "eth0 ", "FAILED; sscanf failed, buf:  2 3"},
        {"eth0:1: 5 6\n", "", "FAILED; sscanf failed, buf: 1: 5 6"},  // an alias
    };
    Boot();
    for (const auto& c : cases) {
        EXPECT_EQ(After(discover, KernelFiles{{"/proc/net/dev", c.text}}), c.seen);
        EXPECT_EQ(Names(), c.names);
    }
    for (auto* const samples : {&inside->old_network_info, &inside->tiny_old_network_info,
                                &inside->proc_old_network_info}) {
        const NetworkInfo& gem0 = (*samples)["gem0"];
        EXPECT_EQ(gem0.nic_name + std::to_string(gem0.input_bytes), "gem01");
        EXPECT_EQ(gem0.output_packets, 4U);
        EXPECT_EQ((*samples)["\teth0"].input_bytes, UINT64_MAX - 1);
        EXPECT_EQ((*samples)["\teth0"].input_packets, UINT64_MAX);
    }
    kernel.Remove("/proc/net/dev");
    EXPECT_EQ(See(discover),
              "FAILED; open /proc/net/dev failed, error_msg: No such file or directory.");
    kernel.MakeFolder("/proc/net/dev");
    EXPECT_EQ(See(discover),
              "FAILED; getline from /proc/net/dev failed, the failbit is 1 and the badbit is 1");
}

TEST_F(Network, RatesTruncateAndAreZeroForAFall) {
    constexpr uint64_t WRAP = uint64_t{1} << 61;  // bytes, of 2^64 bits
    const struct {
        std::string line;
        uint64_t seconds;
        std::string rates;
    } cases[] = {
        {NicLine("eth1", 2000000, 109, 1124999, 20), 1, "8 0 99 10"},
        {NicLine("eth1", 13500000, 109, 2249999, 19), 10, "10 0 9 0"},
        {NicLine("eth1", UINT64_MAX, 11, 1000001, 11), UINT64_MAX, "0 0 0 0"},
        {NicLine("eth1", 1125000 + WRAP, 10, 1000000 + WRAP, 10), 1, "1 0 0 0"},
        {NicLine("eth1", 999999, 15, 1250000, 9), 1, "0 2 5 0"},
        {NicLine("eth1", 1125000, 9, 999999, 16), 1, "1 0 0 6"},
    };
    refresh = false;
    for (const auto& c : cases) {
        Boot(Tables(NicLine("eth1", 1000000, 10, 1000000, 10)));
        kernel.Write(Tables(c.line));
        seconds = c.seconds;
        EXPECT_EQ(See(tiny), "tiny network " + c.rates + " eth1 eth1");
        EXPECT_EQ(See(process), "process network " + c.rates + " eth1 eth1");
        EXPECT_EQ(See([&] {
                      return m->GetNetworkMonitorInfo(&out.interface, "eth1", seconds, false, log);
                  }),
                  "interface " + c.rates + " - -");
    }
}

TEST_F(Network, PeaksAndBaselines) {
    const struct {
        std::string total;  // megabits
        bool refresh;
        std::string peak;  // of the normal cycle; empty: as before
        std::string tiny;
    } cases[] = {
        {"30 40", false, "30 40", "30 40 30 40"},
        {"20 20", false, "", "20 20 20 20"},
        {"70 80", true, "70 80", "70 80 70 80"},
        {"80 81", true, "", "10 1 10 1"},
        {"0 0", true, "", "0 0 0 0"},  // a driver that shows 0 once, then counts on
        {"80 81", true, "80 81", "80 81 80 81"},
    };
    Boot(Tables(Nics("eth1 0 0")));
    for (const auto& c : cases) {
        refresh = c.refresh;
        EXPECT_EQ(After(all, Tables(Nics("eth1 " + c.total))),
                  (c.peak.empty() ? "" : "network " + c.peak + " 0 0 eth1 eth1; ") +
                      "tiny network " + c.tiny + " eth1 eth1; process network " + c.tiny +
                      " eth1 eth1");
    }
    EXPECT_STREQ(inside->tiny_old_network_info["eth1"].nic_name, "");  // lost: the key keeps it
    EXPECT_EQ(See([&] { return m->ClearNetWorkPhasedCacheValue(log); }), "network 0 0 0 0 - -");
    EXPECT_EQ(After(normal, Tables(Nics("eth1 85 83"))), "network 5 2 0 0 eth1 eth1");
    EXPECT_EQ(See([&] { return m->ClearProcessNetWorkPhasedCacheValueForTinyCycle(log); }),
              "tiny network 0 0 0 0 - -; process network 0 0 0 0 - -");
    for (auto* const samples : {&inside->tiny_old_network_info, &inside->proc_old_network_info}) {
        const NetworkInfo& sample = (*samples)["eth1"];
        EXPECT_EQ(sample.max_network_input_bytes_mb + sample.max_network_output_bytes_mb, 0U);
    }
}

TEST_F(Network, TheBusiestInterfaceOrEth1Alone) {
    Boot(Tables(Nics("eth0 0 0, eth1 0 0, eth10 0 0")));
    // Each direction has a holder of its own; a tie leaves it, a higher rate takes it.
    Replay(
        normal,
        {{Tables(Nics("eth0 900 10, eth1 300 20, eth10 7 20")), "network 900 20 0 0 eth0 eth1"},
         {Tables(Nics("eth0 900 10, eth1 1200 20, eth10 7 20")), ""},
         {Tables(Nics("eth0 900 31, eth1 2101 20, eth10 7 20")), "network 901 21 0 0 eth1 eth0"}});
    // Lines of the others are only found, not read.
    EXPECT_EQ(After(tiny, Tables("eth0: x\n" + Nics("eth1 2 3") + "eth10: x\n")),
              "tiny network 2 3 2 3 eth1 eth1");
    EXPECT_EQ(See(process), "process network 2 3 2 3 eth1 eth1");
    EXPECT_EQ(See(normal), "FAILED; sscanf failed, buf: eth0: x.");
    Boot(Tables(Nics("eth0 0 0, eth2 0 0")));
    EXPECT_EQ(After(all, Tables(Nics("eth0 5 5, eth2 5 6"))), "network 5 6 0 0 eth0 eth2");
}

TEST_F(Network, InterfacesComeAndGo) {
    const std::string eth10 = "eth10: 1 2 3 4 5 6 7 8 9 10";
    const std::string cut = "eth1: 1 2 3 4 5 6 7 8 9 10";
    const std::string unparsed = "FAILED; sscanf failed, buf: " + eth10 + ".";
    const std::string both = Nics("eth0 1 1, eth1 1 1");
    const std::string eth1_first = Nics("eth1 1 1, eth0 1 1");
    const std::string eth1 = Nics("eth1 1 1");
    const struct {
        std::string text;
        std::string seen;
        std::string names;
    } steps[] = {
        {eth1_first, Missing("eth1"), "eth1 eth0 "},  // only the order
        {Nics("eth0 1 1"), Missing("eth1"), "eth0 "},
        {both, "", "eth0 "},  // a new one is not noticed until another goes
        {eth1, Missing("eth0"), "eth1 "},
        {Nics("veth1 1 1"), "", "eth1 "},
        {eth1 + eth10, "", "eth1 "},
        {eth10 + "\n" + eth1, unparsed, "eth1 "},
        {eth10 + "\n" + eth1, unparsed, "eth1 "},  // and again
        {cut, "WRONG; " + cut + " Can not find \\n after eth1.", "eth1 "},
        {"", Missing("eth1"), ""},
        {both, "", ""},
    };
    for (const Call& cycle : {normal, tiny, process}) {
        Boot(Tables(both));
        See(cycle);  // an interface that stands still from now on
        for (const auto& step : steps) {
            EXPECT_EQ(After(cycle, Tables(step.text)), step.seen);
            EXPECT_EQ(Names(), step.names);
        }
        // Whichever cycle finds names anew, all three lose bases and peaks and keep results.
        Boot(Tables(both));
        See([&] { return kernel.Write(Tables(Nics("eth0 1 1, eth1 31 41"))), all(); });
        EXPECT_EQ(After(cycle, Tables(Nics("eth1 99 99"))), Missing("eth0"));
        for (auto* const samples : {&inside->old_network_info, &inside->tiny_old_network_info,
                                    &inside->proc_old_network_info}) {
            const NetworkInfo& sample = (*samples)["eth1"];
            EXPECT_EQ(sample.max_network_input_bytes_mb + sample.max_network_output_bytes_mb, 0U);
            EXPECT_EQ(sample.input_packets, 99U);
            EXPECT_EQ(samples->count("eth0"), 1U);  // stays behind
        }
    }
}

TEST_F(Network, AProcessHasABaseOfItsOwnAndTheMachinesNames) {
    Boot(Tables(Nics("eth0 1 1, eth1 100 0")));
    EXPECT_EQ(After(process, KernelFiles{{"/proc/17/net/dev", Nics("eth0 1 1, eth1 130 7")}}),
              "process network 30 7 30 7 eth1 eth1");
    // Another pid goes on from the first one's sample.
    kernel.Write("/proc/18/net/dev", Nics("eth0 1 1, eth1 132 2"));
    EXPECT_EQ(See([&] { return m->CalcProcessNetworkMonitorInfoForTinyCycle(18, 1, true, log); }),
              "process network 2 0 2 0 eth1 eth1");
    EXPECT_EQ(See(tiny), "tiny network 0 0 0 0 eth1 eth1");
    // A namespace without the machine's interfaces fails each time; its names are never adopted.
    kernel.Write("/proc/17/net/dev", Nics("eth1 500 500"));
    Replay(process, {{{}, Missing("eth0")}, {{}, Missing("eth0")}});
    EXPECT_EQ(Names(), "eth0 eth1 ");
}

TEST_F(Network, CyclesThatCannotMeasureSayWhy) {
    Boot(Tables(Nics("eth1 0 0")));
    const auto unread = [&](const Call& cycle, const std::string& file) {
        kernel.Fail(KernelCall::Open, 1, EACCES);
        return See(cycle) == "FAILED; fopen " + file +
                                 " failed, error_msg: Permission denied.; "
                                 "ReadFromFile failed, file: " +
                                 file + ".; GetRawNetWorkInfo failed, ret: -3353.";
    };
    EXPECT_TRUE(unread(normal, "/proc/net/dev"));
    EXPECT_TRUE(unread(tiny, "/proc/net/dev"));
    kernel.Fail(KernelCall::Open, 1, EACCES);
    EXPECT_EQ(See(process),
              "FAILED; fopen /proc/17/net/dev failed, error_msg: Permission denied.; ReadFromFile "
              "failed, file: /proc/17/net/dev.; GetProcessRawNetworkInfo failed, ret: -3353.");
    for (auto* const samples : {&inside->old_network_info, &inside->tiny_old_network_info,
                                &inside->proc_old_network_info}) {
        samples->clear();
    }
    const std::string unsampled = "; CalcNetworkInfo failed, ret: -3609, nic_name: eth1.";
    EXPECT_EQ(See(normal), "NO SAMPLE; can not get old network info, nic_name: eth1." + unsampled);
    EXPECT_EQ(See(tiny), "NO SAMPLE; can not get old network info, nic_name: eth1." + unsampled);
    EXPECT_EQ(
        See(process),
        "NO SAMPLE; can not get old network info from m_proc_old_network_info, nic_name: eth1." +
            unsampled);
}

TEST_F(Network, OneInterfaceIsMeasuredAgainstTheNormalBaseline) {
    Boot(Tables(Nics("eth0 0 0, eth1 0 0")));
    const auto get = [&](const std::string& name, const std::string& text, bool move = false) {
        kernel.Write(Tables(text));
        return See(
            [&] { return m->GetNetworkMonitorInfo(&out.interface, name.c_str(), 2, move, log); });
    };
    const std::string now = Nics("eth0 4 4, eth1 80 8");
    const std::string failed = "; GetNetworkInfo failed, ret: -281, nic_name: ";
    EXPECT_EQ(get("eth1", now), "interface 40 4 40 4 - -");
    EXPECT_EQ(get("eth1", Nics("eth1 60 6"), true), "interface 40 4 30 3 - -");  // bytes: the peaks
    EXPECT_EQ(After(normal, Tables(now)), "network 40 4 0 0 eth1 eth0");
    inside->network_nic_name.clear();
    EXPECT_EQ(get("eth9", now), "WRONG; (null)" + Missing("eth9").substr(6) + failed + "eth9.");
    EXPECT_EQ(Names(), "eth0 eth1 ");
    EXPECT_EQ(get("eth1", "eth1: 1"),
              "WRONG; eth1: 1 Can not find \\n after eth1." + failed + "eth1.");
    EXPECT_EQ(get("eth1", "head\neth1: 1\neth0: 1\n"),
              "FAILED; sscanf failed, buf: head\neth1: 1.; GetNetworkInfo failed, ret: -3353, "
              "nic_name: eth1.");
    EXPECT_EQ(get("lo", Nics("lo 1 1")),
              "NO SAMPLE; can not get old network info, nic_name: lo.; CalcNetworkInfo failed, "
              "ret: -3609, nic_name: lo.; interface 0 0 0 0 - -");
    // It is read from the first place its name stands at, up to the buffer's last character.
    const std::string rest = " 0 0 0 0 0 0 0 0 0\n";
    See([&] { return m->ClearNetWorkPhasedCacheValue(log); });
    EXPECT_EQ(get("eth1", "veth1:22500000" + rest + "eth1: 0" + rest), "interface 50 0 0 0 - -");
    log = nullptr;
    for (const char* const hides : {"veth1a: 7", "eth10: 7", "eth1.1: 7"}) {
        EXPECT_EQ(get("eth1", hides + rest + "eth1: 0" + rest), "FAILED");
    }
    EXPECT_EQ(get(std::string(200, 'e'), now), "WRONG");
    EXPECT_EQ(get("7\n", "eth1: 7\n 8" + rest), "NO SAMPLE; interface 0 0 0 0 - -");
    EXPECT_EQ(get("eth0:7\n", std::string(40959 - 7, ' ') + "eth0:7\n"), "FAILED");
}

TEST_F(Network, ManyInterfacesAreMeasuredUpToTheBufferAndNeverBeyond) {
    for (const size_t count : {300U, 341U, 1023U, 1100U}) {
        std::string text;
        for (size_t i = 0; i < count; ++i) {  // each as long as the kernel's own
            text += std::string(90, ' ') + Nics("veth" + std::to_string(i) + " 0 0");
        }
        Boot(Tables(text));
        const std::string limit = "maybe deadloop, m_network_nic_name.size=1024";
        EXPECT_EQ(See(discover), count < 1024 ? "" : "WRONG; " + limit);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(See(normal).substr(0, 5), count == 300 ? "" : "WRONG");
            EXPECT_EQ(inside->network_nic_name.size(), std::min(count, size_t{1024}));
        }
    }
}

}  // namespace
}  // namespace corvane_test
