// This machine's own kernel: one check for each source, with children of known work, a busy disk,
// and traffic of known size between network namespaces that end with their processes.
#include <arpa/inet.h>
#include <fcntl.h>
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
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "monitor_test_peer.h"

namespace corvane_test {
namespace {

using namespace std::chrono_literals;
using std::this_thread::sleep_for;

/// What parent and child both see, until the test's process ends.
struct Shared {
    std::atomic<double> used[2];  // seconds of CPU
    std::atomic<int> state[2];
    std::atomic<int> count;
};

Shared& MakeShared() {
    return *new (mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                      -1, 0)) Shared();
}

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
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
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

TEST(Real, MachineAndProcessWithOneBusyThread) {
    constexpr double TOLERANCE = 5.0;  // percent of one core
    Shared& shared = MakeShared();
    const ChildProcess child([&] {
        std::thread light([&] { WorkForShare(0.1, shared.used[1]); });
        WorkForShare(0.7, shared.used[0]);
    });
    ASSERT_TRUE(Await([&] { return shared.used[0] > 0 && shared.used[1] > 0; }));
    clockid_t clock = 0;
    clock_getcpuclockid(static_cast<pid_t>(child.Pid()), &clock);
    const auto now = [&] {
        return std::array{SecondsOfTheMachine(), SecondsOf(clock), shared.used[0].load()};
    };
    Monitor monitor;
    const auto pass = [&] {
        EXPECT_EQ(monitor->CalcProcessCPUMonitorInfo(child.Pid(), nullptr, true), 0);
        EXPECT_EQ(monitor->CalcProcessCPUMonitorInfoForTinyCycle(child.Pid(), nullptr), 0);
        EXPECT_EQ(monitor->CalcCPUMonitorInfoForTinyCycle(true, nullptr), 0);
    };
    pass();
    pass();
    const auto start = now();
    sleep_for(2s);
    pass();
    const auto stop = now();
    int32_t process[2] = {};
    int32_t thread[2] = {};
    CorvaneCommon::CPUInfoResult machine;
    EXPECT_EQ(monitor->GetProcessCPUMonitorInfo(process[0], child.Pid(), nullptr), 0);
    EXPECT_EQ(monitor->GetProcessMaxThreadCPUMonitorInfo(thread[0], child.Pid(), nullptr), 0);
    EXPECT_EQ(
        monitor->GetProcessCPUMonitorInfoForTinyCycle(process[1], thread[1], child.Pid(), nullptr),
        0);
    for (const int cycle : {0, 1}) {
        EXPECT_NEAR(process[cycle], 100 * (stop[1] - start[1]) / (stop[0] - start[0]), TOLERANCE);
        EXPECT_NEAR(thread[cycle], 100 * (stop[2] - start[2]) / (stop[0] - start[0]), TOLERANCE);
    }
    EXPECT_EQ(monitor->GetCPUMonitorInfoForTinyCycle(&machine, nullptr), 0);
    EXPECT_EQ(machine.cpu_core_num, static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_GE(machine.cpu_utilization, static_cast<uint32_t>(process[1] - TOLERANCE));
    EXPECT_LE(machine.cpu_utilization, 100U * machine.cpu_core_num);
}

TEST(Real, ThreadsThatStartAndEndDuringTheWalkNeverFailIt) {
    Shared& shared = MakeShared();
    const ChildProcess child([&] {
        for (;; ++shared.count) {
            std::array<std::thread, 20> threads;
            for (std::thread& thread : threads) {
                thread = std::thread([] { std::this_thread::yield(); });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
        }
    });
    ASSERT_TRUE(Await([&] { return shared.count > 0; }));
    Monitor monitor;
    const auto end = std::chrono::steady_clock::now() + 500ms;
    while (std::chrono::steady_clock::now() < end) {
        ASSERT_EQ(monitor->CalcProcessCPUMonitorInfo(child.Pid(), nullptr, true), 0);
    }
}

TEST(Real, Memory) {
    CorvaneCommon::MemoryInfo memory;
    CorvaneCommon::ProcessMemoryInfo own;
    Monitor monitor;
    ASSERT_EQ(monitor->GetMemoryMonitorInfo(&memory, nullptr), 0);
    ASSERT_EQ(monitor->GetProcessMemoryMonitorInfo(&own, static_cast<uint32_t>(getpid()), nullptr),
              0);
    const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const auto pages = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES));
    EXPECT_NEAR(static_cast<double>(memory.total_mb), static_cast<double>(pages * page >> 20), 1.0);
    EXPECT_GT(memory.use_mb, own.physical_memory_mb);
    EXPECT_LT(memory.use_mb, memory.total_mb);
    uint64_t virtual_pages = 0;
    std::ifstream("/proc/self/statm") >> virtual_pages;
    EXPECT_NEAR(static_cast<double>(own.virtual_memory_mb),
                static_cast<double>(virtual_pages * page >> 20), 2.0);
}

/// The device number that the kernel gives a disk by name.
dev_t DeviceOf(const std::string& disk) {
    std::ifstream number("/sys/class/block/" + disk + "/dev");
    unsigned device_major = 0;
    unsigned device_minor = 0;
    char colon = 0;
    number >> device_major >> colon >> device_minor;
    return makedev(device_major, device_minor);
}

TEST(Real, AWriterShowsInItsFoldersDisk) {
    Monitor monitor;
    const char* folders[] = {"."};
    char disk[CorvaneCommon::MONITOR_NAME_LENGTH] = {};
    if (monitor->SetDiskInfo(folders, 1, nullptr) != 0 ||
        monitor->GetDiskNameByFileName(disk, sizeof(disk), ".", nullptr) != 0) {
        GTEST_SKIP() << "no mount table here that knows the current folder";
    }
    struct stat folder = {};
    stat(".", &folder);
    // Past the page cache, into a file that has no name to leave behind.
    const int file = open(".", O_TMPFILE | O_WRONLY | O_CLOEXEC | O_DIRECT, 0600);
    if (DeviceOf(disk) != folder.st_dev || file < 0) {
        GTEST_SKIP() << "the current folder is on no disk of its own, or takes no direct writes";
    }
    Shared& shared = MakeShared();
    const ChildProcess child([&] {
        // Several at once, so that one is under way whenever the kernel's clock ticks: that is how
        // busy time is counted.
        std::array<std::thread, 4> threads;
        for (std::thread& thread : threads) {
            thread = std::thread([&] {
                const void* const block = aligned_alloc(4096, 65536);
                while (pwrite(file, block, 65536, 0) > 0) {
                    ++shared.count;
                }
            });
        }
        threads[0].join();
    });
    close(file);
    if (!Await([&] { return shared.count > 0; })) {
        GTEST_SKIP() << "the current folder takes no direct writes";
    }
    ASSERT_EQ(monitor->CalcDiskIOMonitorInfo(".", 1, true, nullptr), 0);
    const int before = shared.count;
    sleep_for(1s);
    const int written = shared.count - before;
    ASSERT_EQ(monitor->CalcDiskIOMonitorInfo(".", 1, true, nullptr), 0);
    CorvaneCommon::DiskIOInfoResult result;
    ASSERT_EQ(monitor->GetDiskIOMonitorInfo(&result, ".", nullptr), 0);
    // Other work on the disk only adds.
    EXPECT_GE(result.disk_iops, static_cast<uint32_t>(written) - 1);
    EXPECT_GE(result.disk_io_rate, 20U);
    EXPECT_LE(result.disk_io_rate, 100U);
}

bool Shell(const std::string& command) {
    return system(command.c_str()) == 0;  // NOLINT(cert-env33-c): a test's own fixed commands
}

/// The test in a network namespace of its own, for as long as it lives.
struct OwnNamespace {
    const int home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    const bool moved = Shell("ip -V >/dev/null 2>&1") && unshare(CLONE_NEWNET) == 0;
    ~OwnNamespace() {
        EXPECT_TRUE(!moved || setns(home, CLONE_NEWNET) == 0);
        close(home);
    }
};

// Two veth pairs, named eth0 and eth1 at both ends, join the test with a child.
TEST(Real, TheMegabitsAndPacketsThatWereSent) {
    constexpr int COUNT = 10000;
    constexpr size_t SIZE = 1400;
    constexpr uint64_t MEGABITS = COUNT * (SIZE + 8 + 20 + 14) * 8 / 1000000;  // with headers
    const OwnNamespace own;
    if (!own.moved) {
        GTEST_SKIP() << "no command ip, or no network namespace of its own";
    }
    sockaddr_in address = {AF_INET, htons(9), {inet_addr("10.213.77.2")}, {}};
    Shared& shared = MakeShared();
    auto& [of_peer, ours] = shared.state;  // 1 moved, 2 listens, -1 failed; 1 linked
    const ChildProcess peer([&] {
        of_peer = unshare(CLONE_NEWNET) == 0 ? 1 : -1;
        Await([&] { return ours != 0; });
        const int sink = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const bool up = Shell("ip address add 10.213.77.2/30 dev eth1 && ip link set eth1 up");
        of_peer =
            up && bind(sink, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 ? 2 : -1;
        for (char datagram[2000]; recv(sink, datagram, sizeof(datagram), 0) > 0;) {
            ++shared.count;
        }
    });
    const auto add_link = [&](const std::string& name) {
        return Shell("ip link add " + name + " type veth peer name " + name + " netns " +
                     std::to_string(peer.Pid()));
    };
    if (!Await([&] { return of_peer == 1; }) || !add_link("eth0") || !add_link("eth1") ||
        !Shell("ip address add 10.213.77.1/30 dev eth1 && ip link set eth1 up")) {
        GTEST_SKIP() << "no veth pairs between namespaces on this machine";
    }
    ours = 1;
    ASSERT_TRUE(Await([&] { return of_peer == 2; }));
    Monitor monitor;
    // In small batches, the next one when the last has arrived: the kernel's queues between the
    // namespaces are short and drop what a busy machine does not fetch in time.
    const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const std::string data(SIZE, 'x');
    for (int sent = 1; sent <= COUNT; ++sent) {
        ASSERT_EQ(sendto(sender, data.data(), SIZE, 0, reinterpret_cast<sockaddr*>(&address),
                         sizeof(address)),
                  static_cast<ssize_t>(SIZE));
        ASSERT_TRUE(sent % 50 != 0 || Await([&] { return shared.count == sent; })) << sent;
    }
    close(sender);
    const auto is_all = [](uint64_t figure, uint64_t all) {
        return figure >= all && figure <= all * 101 / 100;
    };
    CorvaneCommon::NetworkInfoResult result;
    EXPECT_EQ(monitor->CalcNetworkMonitorInfo(1, true, nullptr), 0);
    EXPECT_EQ(monitor->GetNetworkMonitorInfo(&result, nullptr), 0);
    EXPECT_STREQ(result.output_nic_name, "eth1");
    EXPECT_TRUE(is_all(result.output_bytes_mb, MEGABITS)) << result.output_bytes_mb;
    EXPECT_EQ(result.input_bytes_mb, 0U);
    // Received at the other end, in the child's namespace.
    EXPECT_EQ(monitor->CalcProcessNetworkMonitorInfoForTinyCycle(peer.Pid(), 1, true, nullptr), 0);
    EXPECT_EQ(monitor->GetProcessNetworkMonitorInfoForTinyCycle(&result, nullptr), 0);
    EXPECT_TRUE(is_all(result.input_bytes_mb, MEGABITS)) << result.input_bytes_mb;
    EXPECT_TRUE(is_all(result.input_packets, COUNT)) << result.input_packets;
    EXPECT_EQ(result.output_bytes_mb, 0U);
    // An interface that goes fails one pass. The kernel hands out a long table a page at a time.
    ASSERT_TRUE(
        Shell("ip link delete eth0 && for i in $(seq 100 149); do echo link add veth$i type veth "
              "peer name vethp$i; done | ip -batch -"));
    EXPECT_EQ(monitor->CalcNetworkMonitorInfo(1, true, nullptr), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor->CalcNetworkMonitorInfo(1, true, nullptr), 0);
    EXPECT_EQ(monitor.network_nic_name.size(), 101U);
}

}  // namespace
}  // namespace corvane_test
