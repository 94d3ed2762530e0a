// A day of a made-up machine through the loop: what its reports say, as a whole and where it
// changes.
#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "allocations.h"
#include "kernel_texts.h"
#include "monitor_loop.h"
#include "monitor_test_peer.h"
#include "report_json.h"
#include "report_metrics.h"
#include "table_output.h"

namespace {

using namespace corvane;
using corvane::program::FormatTable;
using namespace corvane_test;
using namespace std::chrono_literals;
using Kind = ProcessTarget::Kind;

// Above every real number, so that this machine's own processes stay out.
const std::string WEB = "4194401";
const std::string DB = "4194402";
const std::string CHILD = "4194403";

class Day : public ::testing::Test {
protected:
    Day() {
        m_kernel.monotonic_us = 1000000000;
        m_kernel.Write({{"/proc/meminfo",
                         "MemTotal: 1048576 kB\nMemFree: 524288 kB\nBuffers: 0 kB\nCached: 0 kB\n"
                         "Shmem: 0 kB\n"},
                        {"/proc/self/mountinfo",
                         "1 0 0:25 / / rw - tmpfs none rw\n30 1 0:25 / /run rw - tmpfs tmpfs rw\n"},
                        {"/sys/devices/sda/sda1/partition", "1\n"},
                        {"/run/db.pid", DB + "\n"},
                        {"/etc/mtab", "/dev/sda1 / ext4 rw 0 0\ntmpfs /run tmpfs rw 0 0\n"}});
        m_kernel.MakeLink("/sys/dev/block/8:1", "../../devices/sda/sda1");
        m_kernel.MakeFolder("/usr");
        m_kernel.status["/"].st_dev = makedev(8, 1);
        m_kernel.status["/run"].st_dev = makedev(0, 25);
        m_kernel.space["/"] = Space(1000, 400, 350);
        m_kernel.space["/run"] = Space(10, 10, 10);
    }

    static struct statvfs Space(uint64_t blocks, uint64_t free, uint64_t available) {
        struct statvfs space = {};
        space.f_frsize = 4096;
        space.f_blocks = blocks;
        space.f_bfree = free;
        space.f_bavail = available;
        return space;
    }

    /// After `m_uptime`: each core half busy, eth0 receives 1 MB/s and ens9 sends 2 kB/s, sda is
    /// 10 % busy with 5 operations a second, a process and its only thread keep 25 % of a core
    /// busy.
    void WriteMachine() {
        const uint64_t u = m_uptime;
        std::vector<Core> cores;
        for (uint64_t core = 0; core < m_cores; ++core) {
            cores.push_back({"cpu" + std::to_string(core), 50 * u, 50 * u});
        }
        const uint64_t d = u - m_replaced;
        const std::string sda = DiskLine("sda", 3 * d, 2 * d, 100 * d);
        m_kernel.Write({{"/proc/stat", StatText(cores)},
                        {"/proc/net/dev", NetDevText({NicLine("lo", u, u, u, u),
                                                      NicLine("eth0", 1000000 * u, 10 * u, 0, 0),
                                                      NicLine(m_second, 0, 0, 2000 * u, u)})},
                        {"/proc/diskstats", sda + DiskLine("sda1", u, u, u, "8 1")}});
        for (const auto& [pid, name] : m_processes) {
            WriteProcess(pid, name);
        }
    }

    void WriteProcess(const std::string& pid, const std::string& name) {
        std::string stat = ProcessStatText(static_cast<uint32_t>(std::stoul(pid)), name,
                                           25 * m_uptime, 0, 0, 0, m_started);
        if (pid == CHILD) {
            stat.replace(stat.find("S 1 "), 3, "S " + DB);
        }
        m_kernel.Write({{"/proc/" + pid + "/stat", stat},
                        {"/proc/" + pid + "/task/" + pid + "/stat", stat},
                        {"/proc/" + pid + "/task/" + pid + "/comm", name + "\n"},
                        {"/proc/" + pid + "/comm", name + "\n"},
                        {"/proc/" + pid + "/status", "VmSize: 4096 kB\nVmRSS: 2048 kB\n"}});
    }

    void Start(ServiceSettings settings) {
        m_loop.reset();
        m_settings = CompleteSettings(std::move(settings));
        WriteMachine();
        m_monitor = std::make_unique<Monitor>();
        m_loop = std::make_unique<MonitorLoop>(m_monitor->monitor, m_settings, m_now);
        EXPECT_FALSE(m_loop->RunDue(m_now));
    }

    Report After(std::chrono::seconds time) {
        m_now += time;
        m_uptime += static_cast<uint64_t>(time.count());
        m_kernel.monotonic_us += std::chrono::microseconds(time).count();
        WriteMachine();
        for (const auto& [path, text] : m_instead) {
            text == "none" ? m_kernel.Remove(path) : m_kernel.Write(path, text);
        }
        return m_loop->RunDue(m_now).value_or(Report());
    }

    /// What the next report says that the last did not: the values of each part of the JSON in the
    /// order of their keys, the families that are not fresh, why, and how the notes begin.
    std::string See(std::chrono::seconds time = 1s) {
        const Report report = After(time);
        std::map<std::string, std::string> parts;
        for (const std::string& note : report.notes) {
            parts["notes"] += " | " + note.substr(0, note.find(": "));
        }
        const nlohmann::json json = nlohmann::json::parse(ReportToJson(report));
        for (const char* const key : {"cpu", "memory", "network", "directories", "processes"}) {
            const nlohmann::json values = json[key].flatten();
            for (const auto& [name, value] : values.items()) {
                const bool row =
                    key == std::string("directories") || key == std::string("processes");
                parts[row ? key + name.substr(0, 2) : key] += " " + value.dump();
            }
        }
        for (const auto& [name, status] : Families(report)) {
            constexpr const char* STATES[] = {"", " is stale: ", " failed: ", " is absent: "};
            parts[" " + name] = STATES[static_cast<int>(status.state)] + status.reason;
        }
        std::string seen;
        for (const auto& [name, text] : parts) {
            seen += m_seen[name] == text || text.empty() ? "" : name + text + "\n";
        }
        m_seen.swap(parts);
        return seen;
    }

    struct Step {
        std::string what;
        std::function<void()> change;
        std::string seen;
    };

    ServiceSettings Settings() const {
        ServiceSettings settings;
        settings.report_interval = 1s;
        settings.directories = {"/", "/run"};
        settings.processes = {{Kind::Pid, WEB}, {Kind::PidFile, "/run/db.pid"}};
        return settings;
    }

    uint64_t m_uptime = 1000;
    uint64_t m_replaced = 0;  // the disk
    uint64_t m_cores = 2;
    std::string m_second = "ens9";
    uint64_t m_started = 100;
    std::map<std::string, std::string> m_processes = {{WEB, "web server"}, {DB, "db"}};
    KernelFiles m_instead;  // of what the machine has written
    Kernel m_kernel;
    ServiceSettings m_settings;
    std::unique_ptr<Monitor> m_monitor;
    std::unique_ptr<MonitorLoop> m_loop;
    Clock::time_point m_now{std::chrono::hours(1)};
    std::map<std::string, std::string> m_seen;
};

std::string WithoutNewlines(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
}

/// The samples of a scrape without what all names begin with, a semicolon behind each.
std::string Samples(const Report* report, Clock::time_point now) {
    std::istringstream lines(ToPrometheusText(report, now));
    std::string samples;
    for (std::string line; std::getline(lines, line);) {
        samples += line[0] == '#' ? "" : line.substr(strlen("corvane_")) + ";";
    }
    return samples;
}

TEST_F(Day, WholeReport) {
    ServiceSettings settings = Settings();
    settings.processes.resize(1);
    m_cores = 1;
    Start(settings);
    Report report = After(1s);
    report.time = std::chrono::system_clock::from_time_t(1700000000);
    EXPECT_EQ(
        ReportToJson(report),
        WithoutNewlines(
            R"({"time":"2023-11-14T22:13:20Z","interval_seconds":1,"cpu":{"core_number":1,"limit_percent":100,
"peak_percent":50,"latest_percent":50,"cores":[{"name":"cpu0","percent":50}]},
"memory":{"used_mib":512,"total_mib":1024},"network":{"receive":{"peak_bytes_per_second":1000000,
"interface":"eth0"},"transmit":{"peak_bytes_per_second":2000,"interface":"ens9"},
"interfaces":[{"name":"eth0","receive_bytes_per_second":1000000,"transmit_bytes_per_second":0,
"receive_packets_per_second":10,"transmit_packets_per_second":0},{"name":"ens9",
"receive_bytes_per_second":0,"transmit_bytes_per_second":2000,"receive_packets_per_second":0,
"transmit_packets_per_second":1}]},"directories":[{"directory":"/","disk":"sda1",
"busy_percent":10,"operations_per_second":5,"used_bytes":2457600,"available_bytes":1433600,
"total_bytes":4096000},{"directory":"/run","disk":null,"busy_percent":null,
"operations_per_second":null,"used_bytes":0,"available_bytes":40960,"total_bytes":40960}],
"processes":[{"process":"4194401","running":true,"pid":4194401,"command":"web server",
"cpu_peak_percent":25,"busiest_thread_peak_percent":25,"resident_mib":2,"virtual_mib":4}],
"stale":[],"failed":[],"reasons":{"disk_io:/run":"no block device is behind it,
 as on tmpfs or a network's file system"},"notes":["directory /run: no block device is behind it,
 as on tmpfs or a network's file system"]})"));
    EXPECT_EQ(
        Samples(&report, report.measured_at + 2s),
        WithoutNewlines(
            R"(build_info{version="1.0.0"} 1;up 1;last_cycle_age_seconds 2;cpu_cores 1;cpu_busy_peak_cores 0.5;
cpu_busy_cores 0.5;cpu_core_busy_ratio{cpu="cpu0"} 0.5;memory_total_bytes 1073741824;
memory_used_bytes 536870912;network_receive_peak_bytes_per_second 1000000;
network_transmit_peak_bytes_per_second 2000;
network_receive_bytes_per_second{interface="eth0"} 1000000;
network_receive_bytes_per_second{interface="ens9"} 0;
network_transmit_bytes_per_second{interface="eth0"} 0;
network_transmit_bytes_per_second{interface="ens9"} 2000;
network_receive_packets_per_second{interface="eth0"} 10;
network_receive_packets_per_second{interface="ens9"} 0;
network_transmit_packets_per_second{interface="eth0"} 0;
network_transmit_packets_per_second{interface="ens9"} 1;
directory_busy_ratio{directory="/",device="sda1"} 0.1;
directory_operations_per_second{directory="/",device="sda1"} 5;
directory_size_bytes{directory="/"} 4096000;directory_size_bytes{directory="/run"} 40960;
directory_used_bytes{directory="/"} 2457600;directory_used_bytes{directory="/run"} 0;
directory_available_bytes{directory="/"} 1433600;
directory_available_bytes{directory="/run"} 40960;watched_process_running{process="4194401"} 1;
watched_process_info{process="4194401",command="web server",pid="4194401"} 1;
watched_process_busy_peak_cores{process="4194401",command="web server"} 0.25;
watched_process_thread_busy_peak_ratio{process="4194401",command="web server"} 0.25;
watched_process_resident_bytes{process="4194401",command="web server"} 2097152;
watched_process_virtual_bytes{process="4194401",command="web server"} 4194304;
collector_success{collector="cpu"} 1;collector_success{collector="memory"} 1;
collector_success{collector="network"} 1;collector_success{collector="disk_io:/"} 1;
collector_success{collector="disk_space:/"} 1;collector_success{collector="disk_space:/run"} 1;
collector_success{collector="process_cpu:4194401"} 1;
collector_success{collector="process_memory:4194401"} 1;report_interval_seconds 1;)"));
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(FormatTable(report, false), R"(2023-11-14 22:13:20   peaks of the last 1 s
CPU      peak     50  of 100 %   now 50 %
         cpu0     50 %
Memory   used  512 MiB of 1.00 GiB   50 %
Network              Receive   Transmit    Packets in/s   Packets out/s
  peak             1.00 MB/s  2.00 kB/s  of eth0 / ens9
  eth0             1.00 MB/s      0 B/s              10               0
  ens9                 0 B/s  2.00 kB/s               0               1
Directory               Disk         Busy %   Ops/s     Used     Free      Size
/                       sda1             10       5 2.34 MiB 1.37 MiB  3.91 MiB
/run                    none           none    none      0 B 40.0 KiB  40.0 KiB
Process                  PID Command          CPU %  Thread % Resident  Virtual
4194401              4194401 web server          25        25 2.00 MiB 4.00 MiB
)");
}

TEST_F(Day, History) {
    ServiceSettings settings = Settings();
    settings.processes.push_back({Kind::Unit, "db"});
    const std::string group = "/sys/fs/cgroup/system.slice/db.service";
    Start(settings);
    See();
    EXPECT_EQ(See(), "") << "nothing changes";
    const std::vector<Step> steps = {
        {"what had a name is another, and a unit starts: its process is the one with a parent "
         "outside",
         [&] {
             m_cores = 1;
             m_second = "ens8";
             m_replaced = m_uptime;
             m_started = 101;
             m_processes[CHILD] = "child";
             m_kernel.Write(group + "/cgroup.procs", CHILD + "\n");
             m_kernel.Write(group + "/workers/cgroup.procs", DB + "\n");
         },
         R"( disk_io:/ failed: its disk sda1 has no line in /proc/diskstats, or its counters fell
 process_cpu:/run/db.pid failed: found in the latest cycle, measured from the next one on
 process_cpu:4194401 is absent: not running: it has ended
 process_cpu:db failed: found in the latest cycle, measured from the next one on
 process_memory:4194401 is absent: not running: it has ended
cpu 1 "cpu0" 50 50 100 50
directories/0 1433600 null "/" "sda1" null 4096000 2457600
network "eth0" 1000000 10 0 0 "eth0" 1000000 null 0
notes | directory / | directory /run | process 4194401
processes/0 null null null null "4194401" null false null
processes/1 null "db" null 4194402 "/run/db.pid" 2 true 4
processes/2 null "db" null 4194402 "db" 2 true 4
)"},
        {"files that cannot be read",
         [&] {
             m_instead = {{"/proc/stat", "none"},
                          {"/proc/meminfo", "MemTotal: 1 kB\n"},
                          {"/proc/net/dev", NetDevText({NicLine("lo", 1, 1, 1, 1)})},
                          {"/proc/diskstats", "none"},
                          {"/proc/" + DB + "/task", "none"}};
         },
         R"( cpu failed: cannot open /proc/stat: No such file or directory
 disk_io:/ failed: cannot open /proc/diskstats: No such file or directory
 memory failed: cannot parse /proc/meminfo
 network failed: no interface matched (names seen: lo)
cpu 1 null null 100 null
memory null null
network null null null null null
notes | cpu | memory | network | directory / | directory /run | process 4194401
processes/1 null "db" 25 4194402 "/run/db.pid" 2 true 4
processes/2 null "db" 25 4194402 "db" 2 true 4
)"},
        {"they are back, but the unit's process has ended: its child is what is left",
         [&] {
             m_instead = {{"/proc/meminfo", "MemTotal: 1048576 kB\nMemFree: 524288 kB\n"}};
             m_processes.erase(DB);
             m_kernel.Remove("/proc/" + DB);
         },
         R"( network failed: all interfaces are new, measured from the next cycle on
 process_cpu:/run/db.pid is absent: not running: process 4194402, which the pid file names, does not exist
 process_cpu:db failed: found in the latest cycle, measured from the next one on
 process_memory:/run/db.pid is absent: not running: process 4194402, which the pid file names, does not exist
cpu 1 "cpu0" 50 50 100 50
directories/0 1433600 10 "/" "sda1" 5 4096000 2457600
memory 1024 512
notes | network | directory /run | process 4194401 | process /run/db.pid
processes/1 null null null null "/run/db.pid" null false null
processes/2 null "child" null 4194403 "db" 2 true 4
)"},
        {"a pid file of nobody's, the unit's child a zombie, another file system mounted",
         [&] {
             m_kernel.Write("/run/db.pid", "1\n");
             m_processes.clear();
             m_kernel.Write("/proc/" + CHILD + "/stat",
                            CHILD + " (a b) Z 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 7\n");
             m_kernel.status["/"].st_dev = makedev(0, 25);
         },
         R"( disk_io:/ is absent: no block device is behind it, as on tmpfs or a network's file system
 process_cpu:/run/db.pid failed: process 1, which the pid file names, is hidden (hidepid)
 process_cpu:db is absent: not running: there is no process in /sys/fs/cgroup/system.slice/db.service
 process_memory:/run/db.pid failed: process 1, which the pid file names, is hidden (hidepid)
 process_memory:db is absent: not running: there is no process in /sys/fs/cgroup/system.slice/db.service
directories/0 1433600 null "/" null null 4096000 2457600
network "eth0" 1000000 10 0 0 "ens8" 0 0 2000 1 "eth0" 1000000 "ens8" 2000
notes | directory / | directory /run | process 4194401 | process /run/db.pid | process db
processes/2 null null null null "db" null false null
)"},
        {"a path that hangs", [&] { m_kernel.Hang("/run"); },
         R"( disk_io:/run failed: does not answer since 1 s
 disk_space:/run failed: does not answer since 1 s
 process_cpu:/run/db.pid failed: its pid file does not answer since 1 s
 process_memory:/run/db.pid failed: its pid file does not answer since 1 s
directories/1 null null "/run" null null null null
)"},
        {"it answers, with nonsense",
         [&] {
             m_kernel.Write("/run/db.pid", "db\n");
             m_kernel.Hang("");
             std::this_thread::sleep_for(200ms);  // nobody waits for it any more
         },
         R"( disk_io:/run is absent: no block device is behind it, as on tmpfs or a network's file system
 process_cpu:/run/db.pid failed: its pid file holds no process number
 process_memory:/run/db.pid failed: its pid file holds no process number
directories/1 40960 null "/run" null null 40960 0
)"},
    };
    for (const Step& step : steps) {
        step.change();
        EXPECT_EQ(See(), step.seen) << step.what;
    }
}

// The compatible reading fails where the strict one goes on, and says why.
TEST_F(Day, CompatibleHistory) {
    ServiceSettings settings = Settings();
    settings.compatible = true;
    settings.report_interval = 2s;
    m_processes[WEB] = "web";
    Start(settings);
    After(1s);
    EXPECT_EQ(
        See(),
        R"( disk_io:/run is absent: no block device is behind it, as on tmpfs or a network's file system
cpu 2 "cpu0" 50 "cpu1" 50 100 200 100
directories/0 1433600 10 "/" "sda1" 5 4096000 2457600
directories/1 40960 null "/run" null null 40960 0
memory 1024 512
network null "eth0" 1000000 null 0
notes | directory /run
processes/0 25 "web" 25 4194401 "4194401" 2 true 4
processes/1 25 "db" 25 4194402 "/run/db.pid" 2 true 4
)");
    const std::vector<Step> steps = {
        {"a core goes in the latest cycle", [&] { m_cores = 1; },
         R"( cpu is stale: the machine's cores have changed
 process_cpu:/run/db.pid is stale: the machine's cores have changed
 process_cpu:4194401 is stale: the machine's cores have changed
cpu 1 null null 100 100
)"},
        {"blanks in names, counters that fell, nothing that it measures",
         [&] {
             m_processes = {{WEB, "a\tb"}, {DB, "db"}};
             m_instead = {
                 {"/proc/" + DB + "/task/7/comm", "GC Thread#0\n"},
                 {"/proc/net/dev", NetDevText({NicLine("wlan0", 1, 1, 1, 1)})},
                 {"/proc/stat", StatText({{"cpu0", 50 * m_uptime + 99, 50 * m_uptime - 50}})},
                 {"/proc/diskstats", DiskLine("sdb", 1, 1, 1)}};
         },
         R"( cpu is stale: the counters of /proc/stat fell
 disk_io:/ is stale: its disk sda1 has no line in /proc/diskstats, or its counters fell
 network is stale: the interfaces have changed
 process_cpu:/run/db.pid is stale: the counters of /proc/stat fell
 process_cpu:4194401 is stale: its command name "a	b" holds a blank
cpu 1 null null 100 50
notes | directory / | directory /run | process 4194401 | process /run/db.pid
processes/0 null "a\tb" 25 4194401 "4194401" 2 true 4
)"},
    };
    for (const Step& step : steps) {
        After(1s);
        step.change();
        EXPECT_EQ(See(), step.seen) << step.what;
    }
    m_kernel.Hang("/etc/mtab");
    Start(settings);
    After(1s);
    EXPECT_EQ(After(1s).directories[0].io.reason,
              "its disk is not known: /etc/mtab does not answer since 2 s");
    m_kernel.Hang("");
}

// Whatever single call or allocation fails: nothing is thrown but what memory there is not, every
// figure is what it is or absent with a reason, nothing stays open, and the next report is whole.
TEST_F(Day, SingleFaults) {
    ServiceSettings settings = Settings();
    settings.processes.push_back({Kind::Unit, "db"});
    m_kernel.Write("/sys/fs/cgroup/db.service/cgroup.procs", DB + "\n");
    Start(settings);
    See();
    int failed = 0;
    for (const KernelCall call : ALL_KERNEL_CALLS) {
        bool reached = true;
        for (int nth = 1; reached; ++nth) {
            m_kernel.Fail(call, nth, nth % 2 == 0 ? ESRCH : EMFILE, 5);
            const Report report = After(1s);
            reached = m_kernel.faults[static_cast<size_t>(call)].countdown == 0;
            m_kernel.Heal();
            for (const auto& [name, status] : Families(report)) {
                failed += status.state == FigureState::Failed ? 1 : 0;
                EXPECT_EQ(status.state == FigureState::Fresh, status.reason.empty()) << name;
            }
            After(1s);
            EXPECT_EQ(See(), "") << static_cast<int>(call) << " " << nth;
            EXPECT_EQ(m_kernel.CountOpen(), 0);
        }
    }
    EXPECT_GT(failed, 10);
    int thrown = 1;
    for (int nth = 1; thrown == nth; ++nth) {
        allocations_to_failure = nth;
        try {
            m_now += 1s;
            m_kernel.monotonic_us += 1000000;
            ReportToJson(m_loop->RunDue(m_now).value_or(Report()));
        } catch (const std::bad_alloc&) {
            ++thrown;
        }
        allocations_to_failure = 0;
        EXPECT_GT(m_loop->NextDue(), m_now);
        After(1s);
        EXPECT_EQ(See(), "") << "allocation " << nth;
    }
    EXPECT_GT(thrown, 200);
}

}  // namespace
