#include "table_output.h"

#include <spdlog/fmt/fmt.h>

#include <algorithm>
#include <ctime>

#include "scaled_text.h"
#include "terminal_text.h"

namespace corvane::program {

namespace {

constexpr size_t LINE_COLUMNS = 80;
constexpr size_t INDENT_COLUMNS = 9;  // of what stands below CPU and Network
constexpr size_t INTERFACE_COLUMNS = 16;
constexpr size_t DIRECTORY_COLUMNS = 23;
constexpr size_t DISK_COLUMNS = 12;
constexpr size_t PROCESS_COLUMNS = 19;
constexpr size_t COMMAND_COLUMNS = 15;
constexpr size_t NAME_COLUMNS = 60;
constexpr size_t LABEL_COLUMNS = 16;  // of what stands before a family without figures
constexpr size_t MAX_INTERFACES = 8;  // beyond, those without traffic are only counted
constexpr uint64_t PERCENT = 100;
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

/// A number in at most `columns`, 6 or more: one that is too long is rounded.
template <typename Number>
std::string Short(Number value, size_t columns) {
    const std::string text = fmt::format("{}", value);
    return text.size() <= columns ? text : fmt::format("{:.0e}", static_cast<double>(value));
}

/// A figure right-aligned in `columns`, its mark included.
std::string Figure(const FamilyStatus& status, const std::string& text, size_t columns) {
    switch (status.state) {
        case FigureState::Failed:
            return fmt::format("{:>{}} ", "-", columns - 1);
        case FigureState::Absent:
            return fmt::format("{:>{}} ", "none", columns - 1);
        case FigureState::Stale:
            return fmt::format("{:>{}}*", text, columns - 1);
        case FigureState::Fresh:
            break;
    }
    return fmt::format("{:>{}} ", text, columns - 1);
}

template <typename Number>
std::string Figure(const FamilyStatus& status, Number value, size_t columns) {
    return Figure(status, Short(value, columns - 1), columns);
}

bool IsHigh(const FamilyStatus& status, uint64_t part, uint64_t whole) {
    return status.HasFigures() && whole > 0 &&
           static_cast<double>(part) * PERCENT >= static_cast<double>(whole) * HIGH_PERCENT;
}

std::string Trimmed(std::string text) {
    text.resize(text.find_last_not_of(' ') + 1);
    return text;
}

std::string CpuLines(const CpuFigures& cpu, bool colour) {
    const uint64_t most = PERCENT * cpu.core_number;
    std::string text = fmt::format(
        "{}      peak {} of {} %   now {}\n", Heading("CPU", colour),
        Alarm(Figure(cpu.status, cpu.peak_percent, 7), IsHigh(cpu.status, cpu.peak_percent, most),
              colour),
        most == 0 ? "-" : std::to_string(most),
        cpu.latest_percent ? fmt::format("{} %", *cpu.latest_percent) : std::string("-"));
    const std::string indent(INDENT_COLUMNS - 2, ' ');
    std::string line;
    size_t used = INDENT_COLUMNS;
    for (const CoreFigures& core : cpu.cores) {
        constexpr size_t CELL_COLUMNS = 15;
        if (used + CELL_COLUMNS > LINE_COLUMNS) {
            text += indent + line + "\n";
            line.clear();
            used = INDENT_COLUMNS;
        }
        line += fmt::format("  {} {:>3} %", FitColumns(core.name, 7), core.percent);
        used += CELL_COLUMNS;
    }
    return line.empty() ? text : text + indent + line + "\n";
}

std::string MemoryLine(const MemoryFigures& memory, bool colour) {
    if (!memory.status.HasFigures()) {
        return Heading("Memory", colour) + "   -\n";
    }
    const uint64_t share = memory.total_mib == 0 ? 0 : memory.used_mib * PERCENT / memory.total_mib;
    return fmt::format("{}   used {}of {}   {}\n", Heading("Memory", colour),
                       Figure(memory.status, BytesText(memory.used_mib * BYTES_PER_MIB), 9),
                       BytesText(memory.total_mib * BYTES_PER_MIB),
                       Alarm(Short(share, 6) + " %",
                             IsHigh(memory.status, memory.used_mib, memory.total_mib), colour));
}

std::string InterfaceLine(const InterfaceFigures& row) {
    return fmt::format(
        "  {} {:>9}  {:>9} {:>15} {:>15}\n", FitColumns(row.name, INTERFACE_COLUMNS),
        RateText(row.receive_bytes_per_second), RateText(row.transmit_bytes_per_second),
        Short(row.receive_packets_per_second, 15), Short(row.transmit_packets_per_second, 15));
}

/// "of eth0", or "of eth0 / eth1" when each direction was busiest on another one.
std::string PeakInterfaces(const NetworkFigures& network) {
    const std::string& receive = network.receive.interface;
    const std::string& transmit = network.transmit.interface;
    if (!network.status.HasFigures() || (receive.empty() && transmit.empty())) {
        return "";
    }
    if (receive == transmit) {
        return "of " + FitColumns(receive, INTERFACE_COLUMNS);
    }
    const auto name = [](const std::string& text) {
        return Trimmed(FitColumns(text.empty() ? "-" : text, INTERFACE_COLUMNS));
    };
    return "of " + name(receive) + " / " + name(transmit);
}

std::string NetworkLines(const NetworkFigures& network, bool colour) {
    std::string text = Heading(fmt::format("{:<18} {:>9}  {:>9} {:>15} {:>15}", "Network",
                                           "Receive", "Transmit", "Packets in/s", "Packets out/s"),
                               colour) +
                       "\n";
    text +=
        Trimmed(fmt::format("  {:<16} {} {} {}", "peak",
                            Figure(network.status, RateText(network.receive.bytes_per_second), 10),
                            Figure(network.status, RateText(network.transmit.bytes_per_second), 10),
                            PeakInterfaces(network))) +
        "\n";
    size_t idle = 0;
    for (const InterfaceFigures& row : network.interfaces) {
        const bool is_idle =
            row.receive_bytes_per_second == 0 && row.transmit_bytes_per_second == 0 &&
            row.receive_packets_per_second == 0 && row.transmit_packets_per_second == 0;
        if (is_idle && network.interfaces.size() > MAX_INTERFACES) {
            ++idle;
        } else {
            text += InterfaceLine(row);
        }
    }
    return idle == 0 ? text : text + fmt::format("  +{} without traffic\n", idle);
}

std::string DirectoryLines(const std::vector<DirectoryFigures>& directories, bool colour) {
    if (directories.empty()) {
        return "";
    }
    std::string text =
        Heading(fmt::format("{:<23} {:<12} {:>6} {:>7} {:>8} {:>8} {:>9}", "Directory", "Disk",
                            "Busy %", "Ops/s", "Used", "Free", "Size"),
                colour) +
        "\n";
    for (const DirectoryFigures& row : directories) {
        const bool is_full =
            IsHigh(row.space, row.used_bytes, row.used_bytes + row.available_bytes);
        std::string disk = row.disk;
        if (disk.empty()) {
            disk = row.io.state == FigureState::Absent ? "none" : "-";
        }
        text += Trimmed(fmt::format(
                    "{} {} {}{}{}{}{}", FitColumns(row.directory, DIRECTORY_COLUMNS),
                    FitColumns(disk, DISK_COLUMNS),
                    Alarm(Figure(row.io, row.busy_percent, 7),
                          IsHigh(row.io, row.busy_percent, PERCENT), colour),
                    Figure(row.io, row.operations_per_second, 8),
                    Alarm(Figure(row.space, BytesText(row.used_bytes), 9), is_full, colour),
                    Alarm(Figure(row.space, BytesText(row.available_bytes), 9), is_full, colour),
                    Figure(row.space, BytesText(row.total_bytes), 10))) +
                "\n";
    }
    return text;
}

std::string ProcessLines(const std::vector<ProcessFigures>& processes, bool colour) {
    if (processes.empty()) {
        return "";
    }
    std::string text =
        Heading(fmt::format("{:<19} {:>8} {:<15} {:>6} {:>9} {:>8} {:>8}", "Process", "PID",
                            "Command", "CPU %", "Thread %", "Resident", "Virtual"),
                colour) +
        "\n";
    for (const ProcessFigures& row : processes) {
        const std::string name =
            fmt::format("{} {:>8} {}", FitColumns(row.target, PROCESS_COLUMNS),
                        row.pid == 0 ? "-" : Short(row.pid, 8),
                        FitColumns(row.command.empty() ? "-" : row.command, COMMAND_COLUMNS));
        if (!row.running) {
            text += name + "  not running\n";
            continue;
        }
        const std::string thread =
            row.thread_peak_percent ? std::to_string(*row.thread_peak_percent) : "-";
        text += Trimmed(fmt::format(
                    "{} {}{}{}{}", name, Figure(row.cpu, row.cpu_peak_percent, 7),
                    Figure(row.cpu, thread, 10),
                    Figure(row.memory, BytesText(row.resident_mib * BYTES_PER_MIB), 9),
                    Figure(row.memory, BytesText(row.virtual_mib * BYTES_PER_MIB), 9))) +
                "\n";
    }
    return text;
}

/// Which families carry a '*' or a '-', and why.
std::string StateLines(const Report& report, FigureState state, const std::string& label) {
    std::string text;
    for (const Family& family : Families(report)) {
        if (family.status.state == state) {
            std::string start = label;
            std::string words = Trimmed(FitColumns(family.name, NAME_COLUMNS));
            if (!family.status.reason.empty()) {
                words += ": " + family.status.reason;
            }
            for (const std::string& line : Wrapped(words, LINE_COLUMNS - LABEL_COLUMNS)) {
                text += start + line + "\n";
                start = "  ";
            }
        }
    }
    return text;
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
