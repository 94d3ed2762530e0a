// This machine's own kernel: children with known work, a busy disk, and traffic of known size
// between network namespaces of the test's own, which end with their processes.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "capturing_log.h"
#include "monitor_test_peer.h"

namespace corvane_test {
namespace {

using namespace std::chrono_literals;
using std::this_thread::sleep_for;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;

/// Counters that parent and child both see.
template <typename T>
class Shared {
public:
    T& operator[](size_t index) const { return m_values[index]; }

private:
    // Until the test's process ends.
    T* m_values = new (mmap(nullptr, 2 * sizeof(T), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0)) T[2]();
};

/// Runs `body`; lives no longer than the test, however that ends.
class ChildProcess {
public:
    explicit ChildProcess(const std::function<void()>& body) {
        const pid_t parent = getpid();
        m_pid = fork();
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() == parent) {
                body();
            }
            _exit(0);
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
    }

    uint32_t Pid() const { return static_cast<uint32_t>(m_pid); }

private:
    pid_t m_pid;
};

template <typename Condition>
bool Await(Condition condition) {
    for (int i = 0; i < 5000 && !condition(); ++i) {
        sleep_for(1ms);
    }
    return condition();
}

double SecondsOf(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Without what the hypervisor took of each core; that is in no figure of the machine.
double SecondsOfTheMachine() {
    std::ifstream stat("/proc/stat");
    std::string column;
    for (int i = 0; i < 9; ++i) {
        stat >> column;
    }
    return SecondsOf(CLOCK_MONOTONIC) - std::stod(column) /
                                            static_cast<double>(sysconf(_SC_CLK_TCK)) /
                                            static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN));
}

/// Keeps the calling thread busy for a share of the time and tells how much CPU it has used.
void WorkForShare(double share, std::atomic<double>& used) {
    while (true) {
        const double stop = SecondsOf(CLOCK_THREAD_CPUTIME_ID) + 0.02 * share;
        while (used < stop) {
            used = SecondsOf(CLOCK_THREAD_CPUTIME_ID);
        }
        sleep_for(std::chrono::duration<double>(0.02 * (1 - share)));
    }
}

TEST(RealProcess, OneBusyThreadAmongOthers) {
    constexpr double TOLERANCE = 5.0;  // percent of one core
    const Shared<std::atomic<double>> used;
    const ChildProcess child([&] {
        std::thread light([&] { WorkForShare(0.1, used[1]); });
        WorkForShare(0.7, used[0]);
    });
    ASSERT_TRUE(Await([&] { return used[0] > 0 && used[1] > 0; }));
    clockid_t clock = 0;
    clock_getcpuclockid(static_cast<pid_t>(child.Pid()), &clock);
    const auto now = [&] {
        return std::array<double, 3>{SecondsOfTheMachine(), SecondsOf(clock), used[0]};
    };
    Monitor monitor;
    CapturingLog log;
    const auto pass = [&] {
        EXPECT_EQ(monitor->CalcProcessCPUMonitorInfo(child.Pid(), &log, true), 0);
        EXPECT_EQ(monitor->CalcProcessCPUMonitorInfoForTinyCycle(child.Pid(), &log), 0);
    };
    pass();
    pass();
    const auto start = now();
    sleep_for(2s);
    pass();
    const auto stop = now();
    int32_t process[2] = {};
    int32_t thread[2] = {};
    EXPECT_EQ(monitor->GetProcessCPUMonitorInfo(process[0], child.Pid(), &log), 0);
    EXPECT_EQ(monitor->GetProcessMaxThreadCPUMonitorInfo(thread[0], child.Pid(), &log), 0);
    EXPECT_EQ(
        monitor->GetProcessCPUMonitorInfoForTinyCycle(process[1], thread[1], child.Pid(), &log), 0);
    for (const int cycle : {0, 1}) {
        EXPECT_NEAR(process[cycle], 100 * (stop[1] - start[1]) / (stop[0] - start[0]), TOLERANCE);
        EXPECT_NEAR(thread[cycle], 100 * (stop[2] - start[2]) / (stop[0] - start[0]), TOLERANCE);
    }
    EXPECT_TRUE(log.Records().empty());
}

TEST(RealProcess, ThreadsThatStartAndEndDuringTheWalkNeverFailIt) {
    const Shared<std::atomic<int>> started;
    const ChildProcess child([&] {
        while (true) {
            std::array<std::thread, 20> threads;
            for (std::thread& thread : threads) {
                thread = std::thread([] { std::this_thread::yield(); });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            ++started[0];
        }
    });
    ASSERT_TRUE(Await([&] { return started[0] > 0; }));
    Monitor monitor;
    CapturingLog log;
    const auto end = std::chrono::steady_clock::now() + 500ms;
    while (std::chrono::steady_clock::now() < end) {
        ASSERT_EQ(monitor->CalcProcessCPUMonitorInfo(child.Pid(), &log, true), 0);
    }
    EXPECT_THAT(log.TakeTexts(), testing::Each(testing::HasSubstr("/task/")));
}

TEST(RealProcess, AThreadsIdIsTakenForAPid) {
    std::thread([] {
        EXPECT_NE(gettid(), getpid());
        const auto tid = static_cast<uint32_t>(gettid());
        EXPECT_TRUE(CorvaneCommon::CMonitorPhysicalUtil::IsPIDValid(tid, nullptr));
    }).join();
}

TEST(RealDisk, AWriterShowsInItsFoldersFigures) {
    Monitor monitor;
    const char* folders[] = {"."};
    ASSERT_EQ(monitor->SetDiskInfo(folders, 1, nullptr), 0);
    char disk[CorvaneCommon::MONITOR_NAME_LENGTH] = {};
    monitor->GetDiskNameByFileName(disk, sizeof(disk), ".", nullptr);
    struct stat folder = {};
    stat(".", &folder);
    std::ifstream number(std::string("/sys/class/block/") + disk + "/dev");
    unsigned device_major = 0;
    unsigned device_minor = 0;
    char colon = 0;
    number >> device_major >> colon >> device_minor;
    // Past the page cache, into a file that has no name to leave behind.
    const int file = open(".", O_TMPFILE | O_WRONLY | O_CLOEXEC | O_DIRECT, 0600);
    if (makedev(device_major, device_minor) != folder.st_dev || file < 0) {
        GTEST_SKIP() << "the current folder is on no disk, or takes no direct writes";
    }
    const Shared<std::atomic<int>> writes;
    const ChildProcess child([&] {
        // Several at once, so that one is under way whenever the kernel's clock ticks: that is how
        // busy time is counted.
        std::array<std::thread, 4> threads;
        for (std::thread& thread : threads) {
            thread = std::thread([&] {
                const void* const block = aligned_alloc(4096, 65536);
                while (pwrite(file, block, 65536, 0) > 0) {
                    ++writes[0];
                }
            });
        }
        threads[0].join();
    });
    close(file);
    ASSERT_TRUE(Await([&] { return writes[0] > 0; }));
    ASSERT_EQ(monitor->CalcDiskIOMonitorInfo(".", 1, true, nullptr), 0);
    const int before = writes[0];
    sleep_for(1s);
    const int written = writes[0] - before;
    ASSERT_EQ(monitor->CalcDiskIOMonitorInfo(".", 1, true, nullptr), 0);
    CorvaneCommon::DiskIOInfoResult result;
    ASSERT_EQ(monitor->GetDiskIOMonitorInfo(&result, ".", nullptr), 0);
    ASSERT_GT(written, 0);
    // Other work on the disk only adds.
    EXPECT_GE(result.disk_iops, static_cast<uint32_t>(written) - 1);
    EXPECT_THAT(result.disk_io_rate, AllOf(Ge(20U), Le(100U)));
}

bool Shell(const std::string& command) {
    return system(command.c_str()) == 0;  // NOLINT(cert-env33-c): a test's own fixed commands
}

/// Two veth pairs, named eth0 and eth1 at both ends, join the test with a child.
class RealNetwork : public testing::Test {
protected:
    void SetUp() override {
        m_home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        m_moved = Shell("ip -V >/dev/null 2>&1") && unshare(CLONE_NEWNET) == 0;
        if (!m_moved) {
            GTEST_SKIP() << "no command ip, or no network namespace of its own";
        }
        peer = std::make_unique<ChildProcess>([this] {
            m_signals[0] = unshare(CLONE_NEWNET) == 0 ? 1 : -1;
            Await([this] { return m_signals[1] != 0; });
            const int sink = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            sockaddr_in any = m_address;
            any.sin_addr.s_addr = INADDR_ANY;
            const bool bound = bind(sink, reinterpret_cast<sockaddr*>(&any), sizeof(any)) == 0;
            m_signals[0] =
                bound && Shell("ip address add 10.213.77.2/30 dev eth1 && ip link set eth1 up")
                    ? 2
                    : -1;
            for (char datagram[2000]; recv(sink, datagram, sizeof(datagram), 0) > 0;) {
                ++m_received[0];
            }
        });
        if (!Await([this] { return m_signals[0] == 1; }) || !AddLink("eth0") || !AddLink("eth1") ||
            !Shell("ip address add 10.213.77.1/30 dev eth1 && ip link set eth1 up")) {
            GTEST_SKIP() << "no veth pairs between namespaces on this machine";
        }
        m_signals[1] = 1;
        ASSERT_TRUE(Await([this] { return m_signals[0] == 2; }));
    }

    void TearDown() override {
        peer.reset();
        EXPECT_TRUE(!m_moved || setns(m_home, CLONE_NEWNET) == 0);
        close(m_home);
    }

    bool AddLink(const std::string& name) {
        return Shell("ip link add " + name + " type veth peer name " + name + " netns " +
                     std::to_string(peer->Pid()));
    }

    /// Sends in small batches, the next one when the last has arrived: the kernel's queues between
    /// the namespaces are short and drop what a busy machine does not fetch in time.
    void SendDatagrams(int count, size_t size) {
        const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const std::string data(size, 'x');
        for (int sent = 1; sent <= count; ++sent) {
            ASSERT_EQ(sendto(sender, data.data(), size, 0,
                             reinterpret_cast<const sockaddr*>(&m_address), sizeof(m_address)),
                      static_cast<ssize_t>(size));
            ASSERT_TRUE(sent % 50 != 0 || Await([&] { return m_received[0] == sent; })) << sent;
        }
        close(sender);
    }

    std::unique_ptr<ChildProcess> peer;

private:
    const sockaddr_in m_address = {AF_INET, htons(9), {inet_addr("10.213.77.2")}, {}};
    int m_home = -1;
    bool m_moved = false;
    Shared<std::atomic<int>>
        m_signals;  // the peer's: 1 moved, 2 listens, -1 failed; ours: 1 linked
    Shared<std::atomic<int>> m_received;
};

TEST_F(RealNetwork, TheMegabitsAndPacketsThatWereSent) {
    constexpr int COUNT = 10000;
    constexpr size_t SIZE = 1400;
    constexpr uint64_t MEGABITS = COUNT * (SIZE + 8 + 20 + 14) * 8 / 1000000;  // with headers
    Monitor monitor;
    CapturingLog log;
    ASSERT_THAT(monitor.network_nic_name, testing::UnorderedElementsAre("eth0", "eth1"));
    SendDatagrams(COUNT, SIZE);
    const auto is_all = AllOf(Ge(MEGABITS), Le(MEGABITS * 101 / 100));
    const auto are_all = AllOf(Ge(COUNT), Le(COUNT * 101 / 100));
    CorvaneCommon::NetworkInfoResult result;
    EXPECT_EQ(monitor->CalcNetworkMonitorInfo(1, true, &log), 0);
    EXPECT_EQ(monitor->GetNetworkMonitorInfo(&result, &log), 0);
    EXPECT_STREQ(result.output_nic_name, "eth1");
    EXPECT_THAT(result.output_bytes_mb, is_all);
    EXPECT_EQ(result.input_bytes_mb, 0U);
    EXPECT_EQ(monitor->CalcNetworkMonitorInfoForTinyCycle(1, true, &log), 0);
    EXPECT_EQ(monitor->GetNetworkMonitorInfoForTinyCycle(&result, &log), 0);
    EXPECT_THAT(result.output_bytes_mb, is_all);
    EXPECT_THAT(result.output_packets, are_all);
    // Received at the other end, in the child's namespace.
    EXPECT_EQ(monitor->CalcProcessNetworkMonitorInfoForTinyCycle(peer->Pid(), 1, true, &log), 0);
    EXPECT_EQ(monitor->GetProcessNetworkMonitorInfoForTinyCycle(&result, &log), 0);
    EXPECT_STREQ(result.input_nic_name, "eth1");
    EXPECT_THAT(result.input_bytes_mb, is_all);
    EXPECT_THAT(result.input_packets, are_all);
    EXPECT_EQ(result.output_bytes_mb, 0U);
    EXPECT_TRUE(log.Records().empty());
}

TEST_F(RealNetwork, AnInterfaceThatGoesFailsOnePass) {
    Monitor monitor;
    CapturingLog log;
    const auto pass = [&] { return monitor->CalcNetworkMonitorInfo(1, true, &log); };
    ASSERT_EQ(pass(), 0);
    ASSERT_TRUE(Shell("ip link delete eth1"));
    EXPECT_EQ(pass(), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(pass(), 0);
    EXPECT_THAT(monitor.network_nic_name, ElementsAre("eth0"));
    ASSERT_TRUE(AddLink("eth1"));
    EXPECT_EQ(pass(), 0);  // not noticed yet
    EXPECT_THAT(monitor.network_nic_name, ElementsAre("eth0"));
    ASSERT_TRUE(Shell("ip link delete eth0"));
    EXPECT_EQ(monitor->CalcNetworkMonitorInfoForTinyCycle(1, true, &log),
              COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor->CalcNetworkMonitorInfoForTinyCycle(1, true, &log), 0);
    EXPECT_EQ(pass(), 0);
    EXPECT_THAT(monitor.network_nic_name, ElementsAre("eth1"));
    EXPECT_THAT(log.TakeTexts(),
                ElementsAre("Can not find eth1, maybe network changed, reinit network info.",
                            "Can not find eth0, maybe network changed, reinit network info."));
    CorvaneCommon::NetworkInfoResult result;
    EXPECT_EQ(monitor->GetNetworkMonitorInfoForTinyCycle(&result, &log), 0);
    EXPECT_STREQ(result.input_nic_name, "eth1");
}

// The kernel hands out /proc/net/dev a page at a time.
TEST_F(RealNetwork, ATableOfSeveralPages) {
    ASSERT_TRUE(
        Shell("for i in $(seq 100 149); do echo link add veth$i type veth peer name vethp$i; done "
              "| ip -batch -"));
    Monitor monitor;
    CapturingLog log;
    EXPECT_EQ(monitor.network_nic_name.size(), 102U);
    EXPECT_EQ(monitor->CalcNetworkMonitorInfo(1, true, &log), 0);
    EXPECT_TRUE(log.Records().empty());
}

}  // namespace
}  // namespace corvane_test
