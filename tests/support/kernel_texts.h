// Texts of made-up machines, line by line or from a list: "cpu0 10 90, cpu1 0 100".
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace corvane_test {

/// The values in words, each behind a blank.
template <typename... Values>
std::string Words(const Values&... values) {
    std::ostringstream text;
    ((text << ' ' << values), ...);
    return text.str();
}

/// One "cpu" line of /proc/stat: busy ticks in user, the rest idle; ten columns.
inline std::string CPULine(const std::string& name, uint64_t user, uint64_t idle) {
    return name + Words(user, "0 0", idle, "0 0 0 0 0 0\n");
}

struct Core {
    std::string name;
    uint64_t user;
    uint64_t idle;
};

/// A /proc/stat with the machine's line first and the other lines behind.
inline std::string StatText(const std::vector<Core>& cores) {
    Core all = {"cpu ", 0, 0};
    std::string lines;
    for (const auto& [name, user, idle] : cores) {
        all.user += user;
        all.idle += idle;
        lines += CPULine(name, user, idle);
    }
    return CPULine(all.name, all.user, all.idle) + lines + "intr 12345 0 0\nctxt 67890\n";
}

/// A line of /proc/net/dev.
inline std::string NicLine(const std::string& name, uint64_t input_bytes, uint64_t input_packets,
                           uint64_t output_bytes, uint64_t output_packets) {
    return name + ":" + Words(input_bytes, input_packets, "0 0 0 0 0 0", output_bytes) +
           Words(output_packets, "0 0 0 0 0 0\n");
}

/// A /proc/net/dev with its header lines.
inline std::string NetDevText(std::initializer_list<std::string> lines) {
    std::string text = "Inter-|   Receive  |  Transmit\n face |bytes packets errs|bytes packets\n";
    for (const std::string& line : lines) {
        text += line;
    }
    return text;
}

/// A line of /proc/diskstats with the figures that the monitor uses, seventeen numbers in all.
inline std::string DiskLine(const std::string& name, uint64_t reads, uint64_t writes,
                            uint64_t busy_milliseconds, const std::string& number = "8 0") {
    return "   " + number + " " + name +
           Words(reads, "0 0 0", writes, "0 0 0 0", busy_milliseconds) + " 0 0 0 0 0 0 0\n";
}

/// A /proc/PID/stat.
inline std::string ProcessStatText(uint32_t pid, const std::string& command, uint64_t user,
                                   uint64_t system, uint64_t user_wait = 0,
                                   uint64_t system_wait = 0, uint64_t start_time = 100) {
    return std::to_string(pid) + " (" + command + ") S 1 1234 1234 0 -1 4194560 100 0 0 0" +
           Words(user, system, user_wait, system_wait, "20 0 4 0", start_time, "0 0\n");
}

struct Row {
    std::string name;
    uint64_t n[3] = {};
};

inline std::vector<Row> Rows(const std::string& list) {
    std::vector<Row> rows;
    std::istringstream stream(list);
    for (std::string text; std::getline(stream, text, ',');) {
        std::istringstream words(text);
        Row& row = rows.emplace_back();
        words >> row.name >> row.n[0] >> row.n[1] >> row.n[2];
    }
    return rows;
}

/// A /proc/stat of cores with busy and idle ticks.
inline std::map<std::string, std::string> Stat(const std::string& list) {
    std::vector<Core> cores;
    for (const auto& [name, n] : Rows(list)) {
        cores.push_back({name, n[0], n[1]});
    }
    return {{"/proc/stat", StatText(cores)}};
}

/// Lines of interfaces with megabits received and sent, and as many packets of each.
inline std::string Nics(const std::string& list) {
    constexpr uint64_t MEGABIT = 125000;  // bytes
    std::string text;
    for (const auto& [name, n] : Rows(list)) {
        text += NicLine(name, n[0] * MEGABIT, n[0], n[1] * MEGABIT, n[1]);
    }
    return text;
}

/// A /proc/diskstats of disks with reads, writes and busy milliseconds.
inline std::map<std::string, std::string> Disks(const std::string& list) {
    std::string text;
    for (const auto& [name, n] : Rows(list)) {
        text += DiskLine(name, n[0], n[1], n[2]);
    }
    return {{"/proc/diskstats", text}};
}

}  // namespace corvane_test
