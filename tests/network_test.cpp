// Network interfaces of the machine and of a process's namespace.
#include <cerrno>

#include "host.h"

namespace corvane_test {
namespace {

using CorvaneCommon::NetworkInfo;

/// The same table for the machine and for the process.
KernelFiles Tables(const std::string& text) {
    return {{"/proc/net/dev", text}, {"/proc/1/net/dev", text}};
}

std::string Missing(const std::string& nic) {
    return "WRONG; Can not find " + nic + ", maybe network changed, reinit network info.";
}

class Network : public HostTest {
protected:
    const Call normal = [this] { return m->CalcNetworkMonitorInfo(seconds, refresh, log); };
    const Call tiny = [this] {
        return m->CalcNetworkMonitorInfoForTinyCycle(seconds, refresh, log);
    };
    const Call process = [this] {
        return m->CalcProcessNetworkMonitorInfoForTinyCycle(PID, seconds, refresh, log);
    };
    const Call all = [this] { return normal() + tiny() + process(); };
    const Call discover = [this] { return inside->InitDefaultNetWorkInfo(log); };

    /// Names as they were discovered.
    std::string Names() const {
        std::string names;
        for (const std::string& name : inside->network_nic_name) {
            names += name + " ";
        }
        return names;
    }
    /// Peaks and bases of an interface in the three cycles' samples.
    std::string Samples(const std::string& nic) const {
        std::string text;
        for (auto* const samples : {&inside->old_network_info, &inside->tiny_old_network_info,
                                    &inside->proc_old_network_info}) {
            const NetworkInfo& s = (*samples)[nic];
            text += Words(s.nic_name[0], s.max_network_input_bytes_mb) +
                    Words(s.max_network_output_bytes_mb, s.input_bytes, s.input_packets) +
                    Words(s.output_bytes, s.output_packets);
        }
        return text;
    }

    uint64_t seconds = 1;
    bool refresh = true;
};

std::string Thrice(const std::string& text) {
    return text + text + text;
}

TEST_F(Network, DiscoveryKeepsNamesByTheirLetters) {
    using namespace std::string_literals;
    std::string many = NetDevText({});
    for (const char* const name : {"lo", "eth0", "veth12ab", "gem0", "em1", "bond0.7", "ens5",
                                   "ib0", "wlan0", "ovs-system", "br-eth1", "tun0", "ETH0"}) {
        many += "  " + NicLine(name, 1, 2, 3, 4);
    }
    const std::string eth0 = Nics("eth0 1 1");
    const std::string no_colon = "WRONG; the file: /proc/net/dev has wrong format of data, buf: ";
    const std::vector<std::array<std::string, 3>> cases = {
        {many, "eth0 veth12ab gem0 em1 bond0.7 ovs-system br-eth1 ", ""},
        {"eth0:1 2 3 4 5 6 7 8 9 10", "eth0 ", ""},  // ten numbers will do, and no newline
        {"\teth0: -2 99999999999999999999999 3 4 5 6 7 8 9 10\n", "\teth0 ", ""},
        {"lo: 1 2 3 4 5 6 7 8 9 10 em\n", "lo ", ""},
        {std::string(200, 'x') + "eth: 1 2 3 4 5 6 7 8 9 10\n", std::string(127, 'x') + " ", ""},
        {eth0 + "eth1 1 2\n" + eth0, "eth0 ", no_colon + "eth1 1 2."},
        {eth0 + "eth\0x: 1\n"s, "eth0 ", no_colon + "eth."},
        {eth0 + "eth1: 2 3\n", "eth0 ", "FAILED; sscanf failed, buf:  2 3"},
        {"eth0:1: 5 6\n", "", "FAILED; sscanf failed, buf: 1: 5 6"}};  // an alias
    Boot();
    for (const auto& [text, names, seen] : cases) {
        EXPECT_EQ(AFTER(Tables(text), discover()), seen);
        EXPECT_EQ(Names(), names);
    }
    EXPECT_EQ(Samples("gem0"), Thrice(" g 0 0 1 2 3 4"));
    EXPECT_EQ(Samples("\teth0"), Thrice(" \t 0 0 18446744073709551614 18446744073709551615 9 10"));
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
        uint64_t interval;
        std::string rates;
    } cases[] = {{NicLine("eth1", 2000000, 109, 1124999, 20), 1, " 8 0 99 10"},
                 {NicLine("eth1", 13500000, 109, 2249999, 19), 10, " 10 0 9 0"},
                 {NicLine("eth1", UINT64_MAX, 11, 1000001, 11), UINT64_MAX, " 0 0 0 0"},
                 {NicLine("eth1", 1125000 + WRAP, 10, 1000000 + WRAP, 10), 1, " 1 0 0 0"},
                 {NicLine("eth1", 999999, 15, 1250000, 9), 1, " 0 2 5 0"},
                 {NicLine("eth1", 1125000, 9, 999999, 16), 1, " 1 0 0 6"}};
    for (const auto& c : cases) {
        Boot(Tables(NicLine("eth1", 1000000, 10, 1000000, 10)));
        kernel.Write(Tables(c.line));
        seconds = c.interval;
        EXPECT_EQ(SEE(m->GetNetworkMonitorInfo(&out.interface, "eth1", seconds, false, log)),
                  "interface" + c.rates + " - -");
        EXPECT_EQ(
            SEE(tiny() + process()),
            "tiny network" + c.rates + " eth1 eth1; process network" + c.rates + " eth1 eth1");
    }
}

TEST_F(Network, PeaksAndBaselines) {
    const struct {
        std::string total;  // megabits
        bool moves;
        std::string peak;  // of the normal cycle; empty: as before
        std::string tiny;
    } cases[] = {{"30 40", false, "30 40", "30 40 30 40"},
                 {"20 20", false, "", "20 20 20 20"},
                 {"70 80", true, "70 80", "70 80 70 80"},
                 {"80 81", true, "", "10 1 10 1"},
                 {"0 0", true, "", "0 0 0 0"},  // a driver that shows 0 once, then counts on
                 {"80 81", true, "80 81", "80 81 80 81"}};
    Boot(Tables(Nics("eth1 0 0")));
    for (const auto& c : cases) {
        refresh = c.moves;
        EXPECT_EQ(AFTER(Tables(Nics("eth1 " + c.total)), all()),
                  (c.peak.empty() ? "" : "network " + c.peak + " 0 0 eth1 eth1; ") +
                      "tiny network " + c.tiny + " eth1 eth1; process network " + c.tiny +
                      " eth1 eth1");
    }
    const std::string base = " 10000000 80 10125000 81";
    const std::string stored = std::string(" ") + '\0' + " 80 81" + base;  // the key keeps the name
    EXPECT_EQ(Samples("eth1"), Thrice(stored));
    EXPECT_EQ(SEE(m->ClearNetWorkPhasedCacheValue(log)), "network 0 0 0 0 - -");
    const std::string cleared = std::string(" ") + '\0' + " 0 0" + base;
    EXPECT_EQ(Samples("eth1"), cleared + stored + stored);
    EXPECT_EQ(SEE(m->ClearProcessNetWorkPhasedCacheValueForTinyCycle(log)),
              "tiny network 0 0 0 0 - -; process network 0 0 0 0 - -");
    EXPECT_EQ(Samples("eth1"), Thrice(cleared));
}

TEST_F(Network, TheBusiestInterfaceOrEth1Alone) {
    Boot(Tables(Nics("eth0 0 0, eth1 0 0, eth10 0 0")));
    // Each direction has a holder of its own; a tie leaves it, a higher rate takes it.
    Replay(
        normal,
        {{Tables(Nics("eth0 900 10, eth1 300 20, eth10 7 20")), "network 900 20 0 0 eth0 eth1"},
         {Tables(Nics("eth0 900 10, eth1 1200 20, eth10 7 20")), ""},
         {Tables(Nics("eth0 900 31, eth1 2101 20, eth10 7 20")), "network 901 21 0 0 eth1 eth0"}});
    // The tiny cycles only find the lines of the others.
    EXPECT_EQ(AFTER(Tables("eth0: x\n" + Nics("eth1 2 3") + "eth10: x\n"), tiny() + process()),
              "tiny network 2 3 2 3 eth1 eth1; process network 2 3 2 3 eth1 eth1");
    EXPECT_EQ(See(normal), "FAILED; sscanf failed, buf: eth0: x.");
    Boot(Tables(Nics("eth0 0 0, eth2 0 0")));
    EXPECT_EQ(AFTER(Tables(Nics("eth0 5 5, eth2 5 6")), all()), "network 5 6 0 0 eth0 eth2");
}

TEST_F(Network, InterfacesComeAndGo) {
    const std::string eth10 = "eth10: 1 2 3 4 5 6 7 8 9 10";
    const std::string cut = "eth1: 1 2 3 4 5 6 7 8 9 10";
    const std::string unparsed = "FAILED; sscanf failed, buf: " + eth10 + ".";
    const std::string both = Nics("eth0 1 1, eth1 1 1");
    const std::string eth1 = Nics("eth1 1 1");
    const std::vector<std::array<std::string, 3>> steps = {
        {"eth0: 1", "WRONG; eth0: 1 Can not find \\n after eth0.", "eth0 eth1 "},
        {eth1 + Nics("eth0 1 1"), Missing("eth1"), "eth1 eth0 "},  // only the order
        {Nics("eth0 1 1"), Missing("eth1"), "eth0 "},
        {both, "", "eth0 "},  // a new one is not noticed until another goes
        {eth1, Missing("eth0"), "eth1 "},
        {Nics("veth1 1 1"), "", "eth1 "},
        {eth10 + "\n" + eth1, unparsed, "eth1 "},
        {eth10 + "\n" + eth1, unparsed, "eth1 "},  // and again
        {cut, "WRONG; " + cut + " Can not find \\n after eth1.", "eth1 "},
        {"", Missing("eth1"), ""},
        {both, "", ""}};
    for (const Call& cycle : {normal, tiny, process}) {
        Boot(Tables(both));
        See(cycle);  // an interface that stands still from now on
        for (const auto& [text, seen, names] : steps) {
            EXPECT_EQ(AFTER(Tables(text), cycle()), seen);
            EXPECT_EQ(Names(), names);
        }
        // Whichever cycle finds names anew, all three lose bases and peaks and keep results.
        Boot(Tables(both));
        AFTER(Tables(Nics("eth0 1 1, eth1 31 41")), all());
        EXPECT_EQ(AFTER(Tables(Nics("eth1 9 9")), cycle()), Missing("eth0"));
        EXPECT_EQ(Samples("eth1"), Thrice(" e 0 0 1125000 9 1125000 9"));
        EXPECT_EQ(inside->old_network_info.count("eth0"), 1U);  // stays behind
    }
}

TEST_F(Network, AProcessHasABaseOfItsOwnAndTheMachinesNames) {
    Boot(Tables(Nics("eth0 1 1, eth1 100 0")));
    kernel.Write({{"/proc/1/net/dev", Nics("eth0 1 1, eth1 130 7")},
                  {"/proc/18/net/dev", Nics("eth0 1 1, eth1 132 2")}});
    EXPECT_EQ(See(process), "process network 30 7 30 7 eth1 eth1");
    // Another pid goes on from the first one's sample.
    EXPECT_EQ(SEE(m->CalcProcessNetworkMonitorInfoForTinyCycle(18, 1, true, log)),
              "process network 2 0 2 0 eth1 eth1");
    // A namespace without the machine's interfaces fails each time; its names are never adopted.
    kernel.Write("/proc/1/net/dev", Nics("eth1 500 500"));
    Replay(process, {{{}, Missing("eth0")}, {{}, Missing("eth0")}});
    EXPECT_EQ(Names(), "eth0 eth1 ");
}

TEST_F(Network, CyclesThatCannotMeasureSayWhy) {
    const std::string denied =
        " failed, error_msg: Permission denied.; ReadFromFile failed, file: ";
    const std::string host = "FAILED; fopen /proc/net/dev" + denied +
                             "/proc/net/dev.; GetRawNetWorkInfo failed, ret: -3353.";
    const std::string no_sample = "NO SAMPLE; can not get old network info";
    const std::string calc =
        ", nic_name: eth1.; CalcNetworkInfo failed, ret: -3609, nic_name: eth1.";
    Boot(Tables(Nics("eth1 0 0")));
    for (const auto& [cycle, unread] :
         {std::pair(normal, host),
          {tiny, host},
          {process, "FAILED; fopen /proc/1/net/dev" + denied +
                        "/proc/1/net/dev.; GetProcessRawNetworkInfo failed, ret: -3353."}}) {
        kernel.Fail(KernelCall::Open, 1, EACCES);
        EXPECT_EQ(See(cycle), unread);
    }
    inside->old_network_info.clear();
    inside->tiny_old_network_info.clear();
    inside->proc_old_network_info.clear();
    EXPECT_EQ(See(normal), no_sample + calc);
    EXPECT_EQ(See(tiny), no_sample + calc);
    EXPECT_EQ(See(process), no_sample + " from m_proc_old_network_info" + calc);
}

TEST_F(Network, OneInterfaceIsMeasuredAgainstTheNormalBaseline) {
    const auto get = [&](const std::string& name, const std::string& text, bool move = false) {
        return AFTER(Tables(text),
                     m->GetNetworkMonitorInfo(&out.interface, name.c_str(), 2, move, log));
    };
    const std::string now = Nics("eth0 4 4, eth1 80 8");
    const std::string failed = "; GetNetworkInfo failed, ret: -281, nic_name: ";
    Boot(Tables(Nics("eth0 0 0, eth1 0 0")));
    EXPECT_EQ(get("eth1", now), "interface 40 4 40 4 - -");
    EXPECT_EQ(get("eth1", Nics("eth1 60 6"), true), "interface 40 4 30 3 - -");  // bytes: peaks
    EXPECT_EQ(AFTER(Tables(now), normal()), "network 40 4 0 0 eth1 eth0");
    inside->network_nic_name.clear();
    EXPECT_EQ(get("eth9", now), "WRONG; (null) " + Missing("eth9").substr(7) + failed + "eth9.");
    EXPECT_EQ(Names(), "eth0 eth1 ");
    EXPECT_EQ(get("eth1", "eth1: 1"),
              "WRONG; eth1: 1 Can not find \\n after eth1." + failed + "eth1.");
    EXPECT_EQ(get("eth1", "head\neth1: 1\neth0: 1\n"),
              "FAILED; sscanf failed, buf: head\neth1: 1.; GetNetworkInfo failed, ret: -3353, "
              "nic_name: eth1.");
    EXPECT_EQ(get("lo", Nics("lo 1 1")),
              "NO SAMPLE; can not get old network info, nic_name: lo.; CalcNetworkInfo failed, "
              "ret: -3609, nic_name: lo.; interface 0 0 0 0 - -");
    kernel.Fail(KernelCall::Open, 1, EACCES);
    EXPECT_EQ(get("lo", now),
              "FAILED; fopen /proc/net/dev failed, error_msg: Permission denied.; ReadFromFile "
              "failed, file: /proc/net/dev.; GetRawNetWorkInfo failed, ret: -3353.; GetNetworkInfo "
              "failed, ret: -3353, nic_name: lo.");
    log = nullptr;
    // It is read from the first place its name stands at, up to the buffer's last character.
    const std::string rest = " 0 0 0 0 0 0 0 0 0\n";
    EXPECT_EQ(get("eth1", "veth1:31250000" + rest + "eth1: 0" + rest), "interface 85 0 0 0 - -");
    EXPECT_EQ(get("eth1", "eth1.1: 7" + rest + "eth1: 0" + rest), "FAILED");
    EXPECT_EQ(get(std::string(200, 'e'), now), "WRONG");
    EXPECT_EQ(get("7\n", "eth1: 7\n 8" + rest), "NO SAMPLE; interface 0 0 0 0 - -");
    EXPECT_EQ(get("eth0:7\n", std::string(40959 - 7, ' ') + "eth0:7\n"), "FAILED");
}

TEST_F(Network, ManyInterfacesAreMeasuredUpToTheBufferAndNeverBeyond) {
    const std::string limit = "WRONG; maybe deadloop, m_network_nic_name.size=1024";
    for (const size_t count : {300U, 341U, 1023U, 1100U}) {
        std::string text;
        for (size_t i = 0; i < count; ++i) {  // each as long as the kernel's own
            text += std::string(90, ' ') + Nics("veth" + std::to_string(i) + " 0 0");
        }
        Boot(Tables(text));
        EXPECT_EQ(See(discover), count < 1024 ? "" : limit);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(SEE(m->CalcNetworkMonitorInfo(1, true, nullptr)),
                      count == 300 ? "" : "WRONG");
            EXPECT_EQ(inside->network_nic_name.size(), std::min(count, size_t{1024}));
        }
    }
}

}  // namespace
}  // namespace corvane_test
