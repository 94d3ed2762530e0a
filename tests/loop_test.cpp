// The loop on a machine of the test's own, in simulated time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include "kernel.h"
#include "kernel_texts.h"
#include "monitor_loop.h"
#include "monitor_test_peer.h"

namespace {

using namespace corvane_host;
using namespace corvane_test;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t PID = 4194304;  // above every real one

class LoopTest : public ::testing::Test {
protected:
    /// The machine after `m_uptime`: each core 50 % busy, eth0 receives 8 Mbit/s and eth1 1, sda is
    /// 10 % busy with 5 operations a second, the process keeps 25 % of a core busy.
    KernelFiles Files() const {
        std::vector<Core> cores;
        for (uint64_t core = 0; core < m_cores; ++core) {
            cores.push_back({"cpu" + std::to_string(core), 50 * m_uptime, 50 * m_uptime});
        }
        const std::string eth0 = NicLine(m_interface, 1000000 * m_uptime, 0, 0, 0);
        const std::string eth1 = NicLine("eth1", 125000 * m_uptime, 7 * m_uptime, 0, 0);
        return {
            {"/proc/stat", StatText(cores)},
            {"/proc/net/dev", NetDevText({eth0, eth1})},
            {"/proc/diskstats", DiskLine("sda", 3 * m_uptime, 2 * m_uptime, 100 * m_uptime)},
            {m_process + "/stat", ProcessStatText(PID, "server", 25 * m_uptime, 0)},
            {m_process + "/task/4194304/stat", ProcessStatText(PID, "server", 25 * m_uptime, 0)}};
    }

    void Start(std::chrono::seconds report_interval, const std::vector<uint32_t>& pids = {}) {
        LoopSettings settings;
        settings.report_interval = report_interval;
        settings.pids = pids;
        settings.directories = {"/", "/usr"};
        m_kernel.Write(Files());
        m_kernel.Write({{"/proc/meminfo",
                         "MemTotal: 1048576 kB\nMemFree: 524288 kB\nBuffers: 0 kB\nCached: 0 kB\n"
                         "Shmem: 0 kB\n"},
                        {"/etc/mtab", "/dev/sda1 / ext4 rw 0 0\n"},
                        {m_process + "/comm", "server\n"},
                        {m_process + "/status", "VmSize: 4096 kB\nVmRSS: 2048 kB\n"}});
        m_kernel.MakeFolder("/usr");
        m_monitor = std::make_unique<Monitor>();
        m_loop = std::make_unique<MonitorLoop>(m_monitor->monitor, settings, nullptr, m_now);
    }

    std::optional<Report> After(std::chrono::seconds time) {
        m_now += time;
        m_uptime += static_cast<uint64_t>(time.count());
        m_kernel.Write(Files());
        return m_loop->RunDue(m_now);
    }

    const std::string m_process = "/proc/4194304";
    uint64_t m_uptime = 1000;
    uint64_t m_cores = 2;
    std::string m_interface = "eth0";
    Clock::time_point m_now{std::chrono::hours(1)};
    Kernel m_kernel;
    std::unique_ptr<Monitor> m_monitor;
    std::unique_ptr<MonitorLoop> m_loop;
};

// The intervals that the rates divide by are those that passed, also after a pause.
TEST_F(LoopTest, RatesAreOverTheTimeThatPassed) {
    Start(1s, {PID, PID - 1});
    EXPECT_THAT(m_loop->TakeNotes(), ElementsAre("process 4194303 does not exist"));
    for (const auto pause : {1s, 4s, 1s}) {
        const auto report = After(pause);
        ASSERT_TRUE(report);
        EXPECT_EQ(report->interval_seconds, static_cast<uint64_t>(pause.count()));
        EXPECT_EQ(report->cpu.peak_percent, 100U);
        EXPECT_EQ(report->cpu.latest_percent, 100U);
        ASSERT_EQ(report->cpu.cores.size(), 2U);
        EXPECT_EQ(report->cpu.cores[1].percent, 50U);
        EXPECT_EQ(report->memory.used_mib, 512U);
        EXPECT_EQ(report->network.receive.megabits_per_second, 8U);
        EXPECT_EQ(report->network.receive.interface, "eth0");
        ASSERT_TRUE(report->network.eth1);
        EXPECT_EQ(report->network.eth1->receive_packets_per_second, 7U);
        // Measured a second time, a disk would read 0 over no time.
        for (const DirectoryFigures& row : report->directories) {
            EXPECT_EQ(row.busy_percent, 10U) << row.directory;
            EXPECT_EQ(row.operations_per_second, 5U) << row.directory;
        }
        EXPECT_EQ(report->processes[0].cpu_peak_percent, 25);
        EXPECT_EQ(report->processes[0].resident_mib, 2U);
        EXPECT_TRUE(report->processes[1].gone);
        EXPECT_EQ(m_loop->NextDue(), m_now + 1s);
    }
}

// When cores or interfaces change the monitor samples all of them anew. That pass counts as failed,
// for both cycles and though no time passed since; earlier figures of the interval stay.
TEST_F(LoopTest, RediscoveryFailsOnePassAndRecovers) {
    for (const auto interval : {3s, 1s}) {
        for (const uint64_t cores : {uint64_t{3}, uint64_t{1}}) {
            const bool earlier = interval > 1s;
            m_cores = 2;
            m_interface = "eth0";
            Start(interval);
            After(1s);
            After(1s);
            m_cores = cores;
            m_interface = "eth2";
            auto report = After(1s);
            ASSERT_TRUE(report);
            EXPECT_EQ(report->cpu.state, earlier ? FigureState::Stale : FigureState::Failed);
            EXPECT_EQ(report->cpu.peak_percent, earlier ? 100U : 0U);
            EXPECT_FALSE(report->cpu.latest_percent);
            EXPECT_EQ(report->network.state, earlier ? FigureState::Stale : FigureState::Failed);
            EXPECT_EQ(report->network.receive.megabits_per_second, earlier ? 8U : 0U);
            EXPECT_FALSE(report->network.eth1);
            EXPECT_EQ(report->directories[0].io_state, FigureState::Fresh);
            for (auto time = 0s; time < interval; time += 1s) {
                report = After(1s);
            }
            ASSERT_TRUE(report);
            EXPECT_EQ(report->cpu.state, FigureState::Fresh);
            EXPECT_EQ(report->cpu.peak_percent, 50U * cores);
            EXPECT_EQ(report->cpu.latest_percent, 50U * cores);
            EXPECT_EQ(report->cpu.cores.size(), cores);
            EXPECT_EQ(report->network.state, FigureState::Fresh);
            EXPECT_EQ(report->network.receive.interface, "eth2");
            EXPECT_TRUE(report->network.eth1);
        }
    }
}

// Counters that fell give figures that no machine has.
TEST_F(LoopTest, AnImpossibleCpuFigureIsDropped) {
    Start(2s);
    After(1s);
    m_now += 1s;
    m_kernel.Write("/proc/stat", StatText({{"cpu0", 50 * m_uptime + 50, 50 * m_uptime - 20},
                                           {"cpu1", 50 * m_uptime + 50, 50 * m_uptime - 20}}));
    const auto report = m_loop->RunDue(m_now);
    EXPECT_EQ(report->cpu.state, FigureState::Stale);
    EXPECT_EQ(report->cpu.peak_percent, 100U);
    EXPECT_FALSE(report->cpu.latest_percent);
    EXPECT_THAT(report->cpu.cores, IsEmpty());
}

TEST_F(LoopTest, AProcessThatWentStaysGone) {
    Start(1s, {PID});
    EXPECT_FALSE(After(1s)->processes[0].gone);
    m_kernel.Remove(m_process);
    m_now += 1s;
    auto report = m_loop->RunDue(m_now);
    EXPECT_TRUE(report->processes[0].gone);
    EXPECT_EQ(report->processes[0].cpu_state, FigureState::Failed);
    EXPECT_EQ(report->memory.state, FigureState::Fresh);
    EXPECT_THAT(report->notes, ElementsAre("process 4194304 has gone"));
    report = After(1s);  // another process with its number
    EXPECT_TRUE(report->processes[0].gone);
    EXPECT_THAT(report->notes, IsEmpty());
}

TEST_F(LoopTest, ADayLeavesMemoryAndDescriptorsAsTheyWere) {
    Start(15s, {PID});
    size_t memory = 0;
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    for (int cycle = 0; cycle < 20000; ++cycle) {
        After(cycle % 15 == 14 ? 15s : 4s);  // 26 hours
        if (cycle == 300) {
            memory = mallinfo2().uordblks;
        }
    }
    EXPECT_LE(mallinfo2().uordblks, memory + 4096);
    EXPECT_EQ(dup(STDERR_FILENO), descriptor) << "the lowest free one";
    close(descriptor);
}

}  // namespace
