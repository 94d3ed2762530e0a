#include "table_output.h"

#include <spdlog/fmt/fmt.h>

#include <algorithm>
#include <ctime>

#include "text_safety.h"

namespace corvane_host {

namespace {

constexpr size_t LINE_COLUMNS = 80;
constexpr size_t DIRECTORY_COLUMNS = 25;
constexpr size_t DISK_COLUMNS = 12;
constexpr size_t COMMAND_COLUMNS = 16;
constexpr size_t INTERFACE_COLUMNS = 10;
constexpr size_t NAME_COLUMNS = 60;
constexpr uint64_t PERCENT = 100;
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
std::string Figure(FigureState state, Number value, size_t columns) {
    if (state == FigureState::Failed) {
        return fmt::format("{:>{}} ", "-", columns - 1);
    }
    return fmt::format("{:>{}}{}", Short(value, columns - 1), columns - 1,
                       state == FigureState::Stale ? '*' : ' ');
}

uint64_t Share(uint64_t part, uint64_t whole) {
    return whole == 0 ? 0 : part * PERCENT / whole;
}

std::string CpuLines(const CpuFigures& cpu, bool colour) {
    const uint64_t most = PERCENT * cpu.core_number;
    const bool high =
        cpu.state != FigureState::Failed && cpu.peak_percent * PERCENT >= most * HIGH_PERCENT;
    std::string text = fmt::format(
        "{}      peak {} of {} %   now {}\n", Heading("CPU", colour),
        Alarm(Figure(cpu.state, cpu.peak_percent, 7), high, colour), most,
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
    if (memory.state == FigureState::Failed) {
        return Heading("Memory", colour) + "   -\n";
    }
    const uint64_t share = Share(memory.used_mib, memory.total_mib);
    return fmt::format("{}   used {} of {} MiB   {}\n", Heading("Memory", colour),
                       Short(memory.used_mib, 14), Short(memory.total_mib, 14),
                       Alarm(Short(share, 6) + " %", share >= HIGH_PERCENT, colour));
}

std::string PeakText(const char* direction, FigureState state, const NetworkPeak& peak) {
    return fmt::format("{} {} Mbit/s {}", direction, Figure(state, peak.megabits_per_second, 8),
                       FitColumns(peak.interface, INTERFACE_COLUMNS));
}

std::string NetworkLines(const NetworkFigures& network, bool colour) {
    std::string text = fmt::format("{}  {} {}\n", Heading("Network", colour),
                                   PeakText("receive", network.state, network.receive),
                                   PeakText("transmit", network.state, network.transmit));
    if (network.eth1) {
        const InterfaceRates& eth1 = *network.eth1;
        const auto now = [](const char* direction, uint64_t megabits, uint64_t packets) {
            return fmt::format("{:<8} {:>7}  Mbit/s {:>10} packets/s\n", direction,
                               Short(megabits, 7), Short(packets, 10));
        };
        text += "eth1 now " +
                now("receive", eth1.receive_megabits_per_second, eth1.receive_packets_per_second);
        text += "         " + now("transmit", eth1.transmit_megabits_per_second,
                                  eth1.transmit_packets_per_second);
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
        const bool busy = row.io_state != FigureState::Failed && row.busy_percent >= HIGH_PERCENT;
        const bool full = row.space_state != FigureState::Failed &&
                          Share(row.used_mib, row.total_mib) >= HIGH_PERCENT;
        text += fmt::format("{} {} {}{}{}{}\n", FitColumns(row.directory, DIRECTORY_COLUMNS),
                            FitColumns(row.disk, DISK_COLUMNS),
                            Alarm(Figure(row.io_state, row.busy_percent, 7), busy, colour),
                            Figure(row.io_state, row.operations_per_second, 10),
                            Alarm(Figure(row.space_state, row.used_mib, 12), full, colour),
                            Figure(row.space_state, row.total_mib, 12));
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
        if (row.gone) {
            text += name + "  gone\n";
            continue;
        }
        text += fmt::format("{} {}{}{} {}\n", name, Figure(row.cpu_state, row.cpu_peak_percent, 8),
                            Figure(row.cpu_state, row.thread_peak_percent, 10),
                            Figure(row.memory_state, row.resident_mib, 15),
                            Figure(row.memory_state, row.virtual_mib, 14));
    }
    return text;
}

/// Which families carry a '*' or a '-'.
std::string StateLines(const Report& report, FigureState state, const char* label) {
    std::string text;
    size_t used = 0;
    for (const FamilyState& family : FamilyStates(report)) {
        if (family.state != state) {
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

}  // namespace corvane_host
