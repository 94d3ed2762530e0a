#include "table_output.h"

#include <spdlog/fmt/fmt.h>

#include <algorithm>
#include <ctime>

#include "terminal_text.h"

namespace corvane::program {

namespace {

constexpr size_t LINE_COLUMNS = 80;
constexpr size_t DIRECTORY_COLUMNS = 25;
constexpr size_t DISK_COLUMNS = 12;
constexpr size_t COMMAND_COLUMNS = 16;
constexpr size_t INTERFACE_COLUMNS = 10;
constexpr size_t NAME_COLUMNS = 60;
constexpr uint64_t PERCENT = 100;
constexpr uint64_t BYTES_PER_MEGABIT = 1000000 / 8;
constexpr uint64_t BYTES_PER_MIB = uint64_t{1024} * 1024;
constexpr uint64_t HIGH_PERCENT = 90;

std::string Heading(const std::string& text, bool colour) {
    return colour ? "\033[1m" + text + "\033[0m" : text;
}

std::string Alarm(const std::string& text, bool is_high, bool colour) {
    return colour && is_high ? "\033[31m" + text + "\033[0m" : text;
}

std::string LocalTime(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local = {};
    localtime_r(&seconds, &local);
    char text[32] = {};
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

/// A figure in at most `columns`, 6 or more: one that is too long is rounded.
template <typename Number>
std::string Short(Number value, size_t columns) {
    const std::string text = fmt::format("{}", value);
    return text.size() <= columns ? text : fmt::format("{:.0e}", static_cast<double>(value));
}

/// A figure right-aligned in `columns`, its mark included.
template <typename Number>
std::string Figure(const FamilyStatus& status, Number value, size_t columns) {
    if (!status.HasFigures()) {
        return fmt::format("{:>{}} ", "-", columns - 1);
    }
    return fmt::format("{:>{}}{}", Short(value, columns - 1), columns - 1,
                       status.state == FigureState::Stale ? '*' : ' ');
}

uint64_t Share(uint64_t part, uint64_t whole) {
    return whole == 0 ? 0 : part * PERCENT / whole;
}

std::string CpuLines(const CpuFigures& cpu, bool colour) {
    const uint64_t most = PERCENT * cpu.core_number;
    const bool high = cpu.status.HasFigures() && cpu.peak_percent * PERCENT >= most * HIGH_PERCENT;
    std::string text = fmt::format(
        "{}      peak {} of {} %   now {}\n", Heading("CPU", colour),
        Alarm(Figure(cpu.status, cpu.peak_percent, 7), high, colour), most,
        cpu.latest_percent ? fmt::format("{} %", *cpu.latest_percent) : std::string("-"));
    std::string line;
    for (const CoreFigures& core : cpu.cores) {
        const std::string cell =
            fmt::format("  {} {:>3} %", FitColumns(core.name, 7), core.percent);
        if (9 + line.size() + cell.size() > LINE_COLUMNS) {
            text += "       " + line + "\n";
            line.clear();
        }
        line += cell;
    }
    return line.empty() ? text : text + "       " + line + "\n";
}

std::string MemoryLine(const MemoryFigures& memory, bool colour) {
    if (!memory.status.HasFigures()) {
        return Heading("Memory", colour) + "   -\n";
    }
    const uint64_t share = Share(memory.used_mib, memory.total_mib);
    return fmt::format("{}   used {} of {} MiB   {}\n", Heading("Memory", colour),
                       Short(memory.used_mib, 14), Short(memory.total_mib, 14),
                       Alarm(Short(share, 6) + " %", share >= HIGH_PERCENT, colour));
}

std::string PeakText(const char* direction, const FamilyStatus& status, const TrafficPeak& peak) {
    return fmt::format("{} {} Mbit/s {}", direction,
                       Figure(status, peak.bytes_per_second / BYTES_PER_MEGABIT, 8),
                       FitColumns(peak.interface, INTERFACE_COLUMNS));
}

std::string NetworkLines(const NetworkFigures& network, bool colour) {
    std::string text = fmt::format("{}  {} {}\n", Heading("Network", colour),
                                   PeakText("receive", network.status, network.receive),
                                   PeakText("transmit", network.status, network.transmit));
    for (const InterfaceFigures& row : network.interfaces) {
        text += fmt::format("         {} receive {:>10} B/s   transmit {:>10} B/s\n",
                            FitColumns(row.name, INTERFACE_COLUMNS), row.receive_bytes_per_second,
                            row.transmit_bytes_per_second);
    }
    return text;
}

std::string DirectoryLines(const std::vector<DirectoryFigures>& directories, bool colour) {
    if (directories.empty()) {
        return "";
    }
    std::string text = Heading(fmt::format("{:<25} {:<12} {:>6} {:>9} {:>11} {:>11}", "Directory",
                                           "Disk", "Busy %", "Ops/s", "Used MiB", "Total MiB"),
                               colour) +
                       "\n";
    for (const DirectoryFigures& row : directories) {
        const bool busy = row.io.HasFigures() && row.busy_percent >= HIGH_PERCENT;
        const bool full =
            row.space.HasFigures() && Share(row.used_bytes, row.total_bytes) >= HIGH_PERCENT;
        text +=
            fmt::format("{} {} {}{}{}{}\n", FitColumns(row.directory, DIRECTORY_COLUMNS),
                        FitColumns(row.disk, DISK_COLUMNS),
                        Alarm(Figure(row.io, row.busy_percent, 7), busy, colour),
                        Figure(row.io, row.operations_per_second, 10),
                        Alarm(Figure(row.space, row.used_bytes / BYTES_PER_MIB, 12), full, colour),
                        Figure(row.space, row.total_bytes / BYTES_PER_MIB, 12));
    }
    return text;
}

std::string ProcessLines(const std::vector<ProcessFigures>& processes, bool colour) {
    if (processes.empty()) {
        return "";
    }
    std::string text =
        Heading(fmt::format("{:>10} {:<16} {:>7} {:>9} {:>14} {:>14}", "PID", "Command", "CPU %",
                            "Thread %", "Resident MiB", "Virtual MiB"),
                colour) +
        "\n";
    for (const ProcessFigures& row : processes) {
        const std::string name =
            fmt::format("{:>10} {}", row.pid, FitColumns(row.command, COMMAND_COLUMNS));
        if (!row.running) {
            text += name + "  gone\n";
            continue;
        }
        text += fmt::format("{} {}{}{} {}\n", name, Figure(row.cpu, row.cpu_peak_percent, 8),
                            Figure(row.cpu, row.thread_peak_percent.value_or(0), 10),
                            Figure(row.memory, row.resident_mib, 15),
                            Figure(row.memory, row.virtual_mib, 14));
    }
    return text;
}

/// Which families carry a '*' or a '-'.
std::string StateLines(const Report& report, FigureState state, const char* label) {
    std::string text;
    size_t used = 0;
    for (const Family& family : Families(report)) {
        if (family.status.state != state) {
            continue;
        }
        std::string name = FitColumns(family.name, std::min(family.name.size(), NAME_COLUMNS));
        name.resize(name.find_last_not_of(' ') + 1);
        if (text.empty()) {
            text = label;
            used = text.size();
        } else if (used + 2 + name.size() + 1 > LINE_COLUMNS) {
            text += ",\n  ";
            used = 2;
        } else {
            text += ", ";
            used += 2;
        }
        text += name;
        used += name.size();
    }
    return text.empty() ? "" : text + "\n";
}

}  // namespace

std::string FormatTable(const Report& report, bool colour) {
    return Heading(fmt::format("{}   peaks of the last {} s", LocalTime(report.time),
                               report.interval_seconds),
                   colour) +
           "\n" + CpuLines(report.cpu, colour) + MemoryLine(report.memory, colour) +
           NetworkLines(report.network, colour) + DirectoryLines(report.directories, colour) +
           ProcessLines(report.processes, colour) +
           StateLines(report, FigureState::Stale, "* stale: ") +
           StateLines(report, FigureState::Failed, "- not measured: ");
}

}  // namespace corvane::program
