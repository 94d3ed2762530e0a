// What the program prints and serves for given figures: golden texts, widths, hostile names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <prometheus/text_serializer.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "json_output.h"
#include "kernel_names.h"
#include "metrics.h"
#include "schedule.h"
#include "table_output.h"
#include "text_safety.h"
#include "version.h"

namespace {

using namespace corvane_host;
using namespace std::chrono_literals;
using ::testing::MatchesRegex;

Report FullReport() {
    Report report;
    report.time = std::chrono::system_clock::from_time_t(1700000000);
    report.measured_at = Clock::time_point(100s);
    report.interval_seconds = 5;
    report.cpu = {FigureState::Fresh, 2, 190, 55, {{"cpu0", 100}, {"cpu1", 9}}};
    report.memory = {FigureState::Fresh, 24105, 512};
    report.network = {FigureState::Fresh, {940, "eth0"}, {16, "bond0"}, InterfaceRates{1, 2, 3, 4}};
    report.directories = {
        {"/", "sda1", FigureState::Fresh, 97, 120, FigureState::Fresh, 258019, 16877}};
    report.processes = {
        {42, "server", false, FigureState::Fresh, 150, 99, FigureState::Fresh, 64, 1024}};
    return report;
}

/// The same with the CPU and the disk stale, the memory, network and space failed, one process
/// gone.
Report BrokenReport() {
    Report report = FullReport();
    report.cpu.state = FigureState::Stale;
    report.cpu.latest_percent.reset();
    report.cpu.cores.clear();
    report.memory.state = FigureState::Failed;
    report.network = {};
    report.directories[0].io_state = FigureState::Stale;
    report.directories[0].space_state = FigureState::Failed;
    report.processes.push_back({7, "shell", true});
    return report;
}

/// Every byte but NUL in the names that other processes choose.
std::string AllBytes() {
    std::string bytes;
    for (int byte = 1; byte <= UCHAR_MAX; ++byte) {
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

Report HostileReport() {
    Report report = FullReport();
    report.cpu.cores[0].name = AllBytes();
    report.network.receive.interface = AllBytes();
    report.directories[0].directory = AllBytes();
    report.directories[0].disk = AllBytes();
    report.directories[0].space_state = FigureState::Failed;  // named once more, at the end
    report.processes[0].command = AllBytes();
    return report;
}

std::string Table(const Report& report) {
    setenv("TZ", "UTC", 1);
    tzset();
    return FormatTable(report, false);
}

std::string Scrape(const Report* report) {
    return prometheus::TextSerializer().Serialize(ToMetrics(report, Clock::time_point(102s)));
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// Without the lines that explain.
std::string Samples(const Report* report) {
    return std::regex_replace(Scrape(report), std::regex("(^|\n)#[^\n]*"), "").substr(1);
}

TEST(Table, FullThenStaleAndFailed) {
    EXPECT_EQ(Table(FullReport()),
              "2023-11-14 22:13:20   peaks of the last 5 s\n"
              "CPU      peak    190  of 200 %   now 55 %\n"
              "         cpu0    100 %  cpu1      9 %\n"
              "Memory   used 512 of 24105 MiB   2 %\n"
              "Network  receive     940  Mbit/s eth0       transmit      16  Mbit/s bond0     \n"
              "eth1 now receive        1  Mbit/s          3 packets/s\n"
              "         transmit       2  Mbit/s          4 packets/s\n"
              "Directory                 Disk         Busy %     Ops/s    Used MiB   Total MiB\n"
              "/                         sda1             97       120       16877      258019 \n"
              "       PID Command            CPU %  Thread %   Resident MiB    Virtual MiB\n"
              "        42 server               150        99             64           1024 \n");
    EXPECT_EQ(Table(BrokenReport()),
              "2023-11-14 22:13:20   peaks of the last 5 s\n"
              "CPU      peak    190* of 200 %   now -\n"
              "Memory   -\n"
              "Network  receive       -  Mbit/s            transmit       -  Mbit/s           \n"
              "Directory                 Disk         Busy %     Ops/s    Used MiB   Total MiB\n"
              "/                         sda1             97*      120*          -           - \n"
              "       PID Command            CPU %  Thread %   Resident MiB    Virtual MiB\n"
              "        42 server               150        99             64           1024 \n"
              "         7 shell             gone\n"
              "* stale: cpu, disk_io:/\n"
              "- not measured: memory, network, disk_space:/, process_cpu:7, process_memory:7\n");
}

TEST(Table, ColourOnlyWhenAsked) {
    const std::string coloured = FormatTable(FullReport(), true);
    EXPECT_NE(coloured.find("\033[31m   190 \033[0m"), std::string::npos) << "190 of 200 % is high";
    EXPECT_EQ(std::regex_replace(coloured, std::regex("\033\\[(0|1|31)m"), ""),
              Table(FullReport()));
}

// Whatever the figures and names, and whatever of it failed.
TEST(Table, NeverWiderThanATerminal) {
    Report report = FullReport();
    report.interval_seconds = UINT64_MAX;
    report.cpu.core_number = UINT32_MAX;
    report.cpu.peak_percent = UINT32_MAX;
    report.cpu.latest_percent = UINT32_MAX;
    report.cpu.cores.assign(40, {"cpu1234567890", UINT32_MAX});
    report.memory = {FigureState::Fresh, 1, UINT64_MAX};
    const std::string name(200, 'n');
    report.network.receive = report.network.transmit = {UINT64_MAX, name};
    report.network.eth1 = {UINT64_MAX, UINT64_MAX, UINT64_MAX, UINT64_MAX};
    report.directories = {{name, name, FigureState::Stale, UINT32_MAX, UINT32_MAX,
                           FigureState::Stale, UINT64_MAX, UINT64_MAX}};
    report.processes = {{UINT32_MAX, name, false, FigureState::Stale, INT32_MIN, INT32_MAX,
                         FigureState::Stale, UINT64_MAX, UINT64_MAX}};
    for (const Report& shown : {report, BrokenReport(), HostileReport()}) {
        for (const std::string& line : Lines(Table(shown))) {
            EXPECT_LE(line.size(), 80U) << line;
        }
    }
}

TEST(Json, Full) {
    EXPECT_EQ(FormatJson(FullReport()),
              R"({"time":"2023-11-14T22:13:20Z","interval_seconds":5,)"
              R"("cpu":{"core_number":2,"limit_percent":200,"peak_percent":190,)"
              R"("latest_percent":55,"cores":[{"name":"cpu0","percent":100},)"
              R"({"name":"cpu1","percent":9}]},"memory":{"used_mib":512,"total_mib":24105},)"
              R"("network":{"receive":{"peak_megabits_per_second":940,"interface":"eth0"},)"
              R"("transmit":{"peak_megabits_per_second":16,"interface":"bond0"},)"
              R"("eth1":{"receive_megabits_per_second":1,"transmit_megabits_per_second":2,)"
              R"("receive_packets_per_second":3,"transmit_packets_per_second":4}},)"
              R"("directories":[{"directory":"/","disk":"sda1","busy_percent":97,)"
              R"("operations_per_second":120,"used_mib":16877,"total_mib":258019}],)"
              R"("processes":[{"pid":42,"command":"server","gone":false,"cpu_peak_percent":150,)"
              R"("busiest_thread_peak_percent":99,"resident_mib":64,"virtual_mib":1024}],)"
              R"("stale":[],"failed":[]})"
              "\n");
}

TEST(Json, StaleAndFailed) {
    const auto json = nlohmann::json::parse(FormatJson(BrokenReport()));
    for (const char* const path :
         {"/cpu/latest_percent", "/memory/used_mib", "/network/receive/peak_megabits_per_second",
          "/network/eth1", "/directories/0/used_mib", "/processes/1/cpu_peak_percent"}) {
        EXPECT_TRUE(json.at(nlohmann::json::json_pointer(path)).is_null()) << path;
    }
    EXPECT_EQ(json["cpu"]["peak_percent"], 190);
    EXPECT_EQ(json["stale"], (nlohmann::json{"cpu", "disk_io:/"}));
    EXPECT_EQ(json["failed"], (nlohmann::json{"memory", "network", "disk_space:/", "process_cpu:7",
                                              "process_memory:7"}));
}

TEST(Output, HostileNames) {
    const std::string json = FormatJson(HostileReport());
    for (const char byte : Table(HostileReport()) + json) {
        ASSERT_TRUE(byte == '\n' || (byte >= ' ' && byte <= '~')) << static_cast<int>(byte);
    }
    EXPECT_EQ(Lines(json).size(), 1U);
    EXPECT_EQ(nlohmann::json::parse(json)["directories"][0]["directory"], ValidUtf8(AllBytes()));
}

TEST(Metrics, Full) {
    const Report report = FullReport();
    EXPECT_EQ(Samples(&report),
              "corvane_build_info{version=\"" CORVANE_VERSION
              "\"} 1\n"
              "corvane_up 1\ncorvane_last_cycle_age_seconds 2\ncorvane_cpu_cores 2\n"
              "corvane_cpu_busy_peak_cores 1.9\ncorvane_cpu_busy_cores 0.55\n"
              "corvane_cpu_core_busy_ratio{cpu=\"cpu0\"} 1\n"
              "corvane_cpu_core_busy_ratio{cpu=\"cpu1\"} 0.09\n"
              "corvane_memory_total_bytes 25275924480\ncorvane_memory_used_bytes 536870912\n"
              "corvane_network_receive_peak_bytes_per_second{device=\"eth0\"} 117500000\n"
              "corvane_network_transmit_peak_bytes_per_second{device=\"bond0\"} 2000000\n"
              "corvane_network_receive_bytes_per_second{device=\"eth1\"} 125000\n"
              "corvane_network_transmit_bytes_per_second{device=\"eth1\"} 250000\n"
              "corvane_network_receive_packets_per_second{device=\"eth1\"} 3\n"
              "corvane_network_transmit_packets_per_second{device=\"eth1\"} 4\n"
              "corvane_directory_busy_ratio{directory=\"/\",device=\"sda1\"} 0.97\n"
              "corvane_directory_operations_per_second{directory=\"/\",device=\"sda1\"} 120\n"
              "corvane_directory_size_bytes{directory=\"/\",device=\"sda1\"} 270552530944\n"
              "corvane_directory_used_bytes{directory=\"/\",device=\"sda1\"} 17696817152\n"
              "corvane_watched_process_busy_peak_cores{pid=\"42\",command=\"server\"} 1.5\n"
              "corvane_watched_process_thread_busy_peak_ratio{pid=\"42\",command=\"server\"} 0.99\n"
              "corvane_watched_process_resident_bytes{pid=\"42\",command=\"server\"} 67108864\n"
              "corvane_watched_process_virtual_bytes{pid=\"42\",command=\"server\"} 1073741824\n"
              "corvane_collector_success{collector=\"cpu\"} 1\n"
              "corvane_collector_success{collector=\"memory\"} 1\n"
              "corvane_collector_success{collector=\"network\"} 1\n"
              "corvane_collector_success{collector=\"disk_io:/\"} 1\n"
              "corvane_collector_success{collector=\"disk_space:/\"} 1\n"
              "corvane_collector_success{collector=\"process_cpu:42\"} 1\n"
              "corvane_collector_success{collector=\"process_memory:42\"} 1\n"
              "corvane_report_interval_seconds 5\n");
}

TEST(Metrics, BeforeAReportAndAfterFailures) {
    EXPECT_NE(Samples(nullptr).find("corvane_up 0\n"), std::string::npos);
    EXPECT_EQ(Lines(Samples(nullptr)).size(), 2U);
    const Report report = BrokenReport();
    const std::string scrape = Scrape(&report);
    for (const char* const absent : {"corvane_memory_", "corvane_network_", "_size_bytes",
                                     "corvane_cpu_busy_cores", "pid=\"7\""}) {
        EXPECT_EQ(scrape.find(absent), std::string::npos) << absent;
    }
    for (const char* const zero : {"memory", "cpu", "disk_space:/", "process_cpu:7"}) {
        const std::string line = "{collector=\"" + std::string(zero) + "\"} 0\n";
        EXPECT_NE(scrape.find(line), std::string::npos) << line;
    }
}

TEST(Metrics, HostileNames) {
    Report report = HostileReport();
    report.directories.push_back(report.directories[0]);
    report.directories[1].directory.back() = '\xFE';  // as little UTF-8 as the last byte
    const std::string scrape = Scrape(&report);
    EXPECT_EQ(ValidUtf8(scrape), scrape);
    std::set<std::string> seen;
    for (const std::string& line : Lines(Samples(&report))) {
        EXPECT_THAT(line,
                    MatchesRegex(
                        R"re([a-z_0-9]+([{]([a-z]+="([^"\\]|[\\][\\"n])*",?)+[}])? [-+0-9.e]+)re"));
        EXPECT_TRUE(seen.insert(line.substr(0, line.rfind(' '))).second) << "twice: " << line;
    }
}

TEST(TextSafety, Table) {
    struct Row {
        std::string text;
        std::string printable;
        std::string valid_utf8;
    };
    const std::string r = "\357\277\275";
    const std::string characters = "\303\251\342\202\254\360\237\230\200";  // of 2, 3 and 4 bytes
    const std::vector<Row> rows = {
        {"plain ~", "plain ~", "plain ~"},
        {"\033[31m\n\177", "?[31m??", "\033[31m\n\177"},
        {"\302\2332J\302\240", "?2J\302\240", "\302\2332J\302\240"},  // CSI as one character
        {characters, characters, characters},
        {"\303", "?", r},                                      // cut off
        {"\342\202x", "??x", r + r + "x"},                     // cut off within
        {"\300\257\340\200\257", "?????", r + r + r + r + r},  // longer than needed
        {"\355\240\200", "???", r + r + r},                    // half of a pair
        {"\364\220\200\200\377", "?????", r + r + r + r + r},  // beyond Unicode
    };
    for (const Row& row : rows) {
        EXPECT_EQ(Printable(row.text), row.printable);
        EXPECT_EQ(ValidUtf8(row.text), row.valid_utf8);
    }
    EXPECT_EQ(FitColumns("abc", 5), "abc  ");
    EXPECT_EQ(FitColumns("abcde", 5), "abcde");
    EXPECT_EQ(FitColumns("ab\303\251def", 4), "ab\303\251~");
    EXPECT_EQ(FitColumns("\n\n\n", 2), "?~");
}

TEST(KernelNames, WhichDiskIsMeasured) {
    struct Row {
        const char* diskstats;
        const char* disk;
        const char* measured;
        bool itself;
    };
    const Row rows[] = {
        {"   8 0 sda 1\n   8 1 sda1 1\n", "sda1", "sda", true},
        {"   8 0 sda 1\n  65 160 sdaa 1\n", "sdaa", "sda", false},
        {" 259 0 nvme0n1 1\n 259 1 nvme0n1p1 1\n", "nvme0n1p1", "nvme0n1", true},
        {" 259 0 nvme0n1 1\n 259 5 nvme0n10 1\n", "nvme0n10", "nvme0n1", false},
        {"   8 208 sdn 1\n 259 0 nvme0n1 1\n", "nvme0n1p1", "sdn", false},
        {"   8 0 sda 1\n", "data", "sda", false},  // by "da", within the name of another
        {" 254 0 vda 1\n", "tmpfs", "", false},
    };
    for (const Row& row : rows) {
        const std::string measured = MeasuredDiskName(row.diskstats, row.disk);
        EXPECT_EQ(measured, row.measured) << row.disk;
        EXPECT_EQ(IsDiskOrPartition(row.disk, measured), row.itself) << row.disk;
    }
}

TEST(ScheduleOfTicks, NeitherDriftsNorCatchesUp) {
    const Clock::time_point start(1000s);
    Schedule schedule(start, 5s);
    EXPECT_FALSE(schedule.IsDue(start + 4999ms));
    schedule.Advance(start + 5300ms);  // late, but the grid stays
    EXPECT_EQ(schedule.Due(), start + 10s);
    schedule.Advance(start + 61s);  // a pause: one tick, not ten
    EXPECT_EQ(schedule.Due(), start + 65s);
    schedule.Advance(start + 65s);
    EXPECT_EQ(schedule.Due(), start + 70s);

    for (const auto& [elapsed, seconds] :
         {std::pair(0ms, 1U), {400ms, 1U}, {1499ms, 1U}, {1501ms, 2U}, {5s, 5U}}) {
        EXPECT_EQ(ElapsedSeconds(start, start + elapsed), seconds);
    }
}

}  // namespace
