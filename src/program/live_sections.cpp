#include "live_sections.h"

#include <spdlog/fmt/fmt.h>

#include <algorithm>

#include "live_table.h"
#include "scaled_text.h"
#include "terminal_text.h"

namespace corvane::program {

namespace {

using Kind = TableColumn::Kind;

constexpr uint64_t BYTES_PER_MIB = uint64_t{1024} * 1024;
constexpr double PERCENT = 100.0;
constexpr uint32_t HIGH_PERCENT = 90;
constexpr size_t CORE_COLUMNS = 20;   // of a core with name, bar and figure, at least
constexpr size_t CORE_FIGURE = 5;     // "100%" and a blank
constexpr size_t CORES_TOGETHER = 8;  // in a row of characters, between blanks

/// A figure with a place for the mark of a stale one.
TableCell Figure(const FamilyStatus& status, const std::string& text, bool high = false) {
    if (!status.HasFigures()) {
        return {"- ", Style::Quiet};
    }
    const char* const mark = status.state == FigureState::Stale ? "*" : " ";
    return {text + mark, high ? Style::Alarm : Style::Plain};
}

TableCell Count(const FamilyStatus& status, uint64_t value) {
    return Figure(status, Scaled(static_cast<double>(value), Prefix::Decimal));
}

TableCell Bytes(const FamilyStatus& status, uint64_t value, bool high = false) {
    return Figure(status, Scaled(static_cast<double>(value), Prefix::Binary), high);
}

TableCell Percent(const FamilyStatus& status, int64_t value, bool high = false) {
    return Figure(status, Scaled(static_cast<double>(value), Prefix::Decimal) + "%", high);
}

TableCell BarCell(const FamilyStatus& status, double share) {
    return status.HasFigures() ? TableCell{"", Style::Plain, share} : TableCell{};
}

TableCell GraphCell(const Samples& samples, double least_scale) {
    const auto highest = std::max_element(samples.begin(), samples.end());
    const double scale = highest == samples.end() ? 0 : *highest;
    return {"", Style::Plain, {}, &samples, std::max(least_scale, scale)};
}

Section TableSection(Noun noun, const std::vector<TableColumn>& columns,
                     const std::vector<TableRow>& rows, size_t width) {
    Section section = {noun, {}, {}};
    if (rows.empty()) {
        return section;
    }
    for (Line& line : DrawTable(columns, rows, width)) {
        if (section.heading.empty()) {
            section.heading = std::move(line);
        } else {
            section.rows.push_back({std::move(line)});
        }
    }
    return section;
}

/// The command of what is watched by its number, otherwise what it is watched by and its command.
std::string ProcessName(const ProcessFigures& process) {
    if (process.command.empty()) {
        return process.target;
    }
    return process.target == std::to_string(process.pid)
               ? process.command
               : fmt::format("{} ({})", process.target, process.command);
}

void Append(Line& line, const Line& more) {
    line.insert(line.end(), more.begin(), more.end());
}

Line CoreCell(const CoreFigures& core, size_t name_columns, size_t columns) {
    const bool high = core.percent >= HIGH_PERCENT;
    Line line = {{FitColumns(core.name, name_columns) + " "}};
    Append(line, Bar(core.percent / PERCENT, columns - name_columns - 2 - CORE_FIGURE, high));
    line.push_back(
        {fmt::format("{:>4}%", std::min(core.percent, 9999U)), high ? Style::Alarm : Style::Plain});
    line.push_back({" "});
    return line;
}

/// Cores with names and figures, `across` in a line.
void AddCoreBars(const std::vector<CoreFigures>& cores, size_t across, size_t columns,
                 Section& section) {
    size_t name_columns = 0;
    for (const CoreFigures& core : cores) {
        name_columns = std::max(name_columns, ColumnsOf(core.name));
    }
    name_columns = std::min(name_columns, CORE_COLUMNS / 2);
    for (size_t i = 0; i < cores.size(); ++i) {
        if (i % across == 0) {
            section.rows.push_back({{}, 0});
        }
        Append(section.rows.back().line, CoreCell(cores[i], name_columns, columns / across));
        ++section.rows.back().items;
    }
}

/// A character for each core.
void AddCoreCharacters(const std::vector<CoreFigures>& cores, size_t columns, Section& section) {
    const size_t name_columns = ColumnsOf(cores.back().name) + 1;
    const size_t groups = std::max<size_t>(1, (columns - name_columns) / (CORES_TOGETHER + 1));
    for (size_t i = 0; i < cores.size(); i += CORES_TOGETHER) {
        if (i % (groups * CORES_TOGETHER) == 0) {
            section.rows.push_back({{{FitColumns(cores[i].name, name_columns)}}, 0});
        }
        Samples samples;
        for (size_t core = i; core < std::min(cores.size(), i + CORES_TOGETHER); ++core) {
            samples.push_back(static_cast<float>(cores[core].percent));
        }
        Append(section.rows.back().line, Plot(samples, PERCENT, true, 1, samples.size()).front());
        section.rows.back().line.push_back({" "});
        section.rows.back().items += samples.size();
    }
}

}  // namespace

Section CoreSection(const CpuFigures& cpu, size_t columns, size_t max_rows) {
    Section section = {{"core", "cores"}, {}, {}};
    const size_t count = cpu.cores.size();
    if (count == 0) {
        return section;
    }
    const size_t most_across = std::max<size_t>(1, columns / CORE_COLUMNS);
    const size_t rows = (count + most_across - 1) / most_across;
    if (max_rows == 0 || rows <= max_rows) {
        AddCoreBars(cpu.cores, (count + rows - 1) / rows, columns, section);
    } else {
        AddCoreCharacters(cpu.cores, columns, section);
    }
    return section;
}

Section InterfaceSection(const NetworkFigures& network, const Histories& histories,
                         size_t columns) {
    std::vector<TableRow> rows;
    for (const InterfaceFigures& row : network.interfaces) {
        rows.push_back({{row.name},
                        Count(network.status, row.receive_bytes_per_second),
                        GraphCell(histories.Of("receive:" + row.name), 1),
                        Count(network.status, row.transmit_bytes_per_second),
                        GraphCell(histories.Of("transmit:" + row.name), 1),
                        Count(network.status, row.receive_packets_per_second),
                        Count(network.status, row.transmit_packets_per_second)});
    }
    return TableSection({"interface", "interfaces"},
                        {{"Interface", Kind::Name, 8},
                         {"Rx B/s", Kind::Figure, 6},
                         {"Received", Kind::Drawing, 10, 1},
                         {"Tx B/s", Kind::Figure, 6},
                         {"Transmitted", Kind::Drawing, 10, 1},
                         {"Rx p/s", Kind::Figure, 6},
                         {"Tx p/s", Kind::Figure, 6}},
                        rows, columns);
}

Section DirectorySection(const std::vector<DirectoryFigures>& directories, size_t columns) {
    std::vector<TableRow> rows;
    for (const DirectoryFigures& row : directories) {
        // What root keeps for itself is as good as used.
        const double use = row.total_bytes == 0 ? 0
                                                : 1 - static_cast<double>(row.available_bytes) /
                                                          static_cast<double>(row.total_bytes);
        const bool full = use * PERCENT >= HIGH_PERCENT;
        rows.push_back({{row.directory},
                        {row.disk.empty() ? "-" : row.disk},
                        BarCell(row.io, row.busy_percent / PERCENT),
                        Percent(row.io, row.busy_percent, row.busy_percent >= HIGH_PERCENT),
                        Count(row.io, row.operations_per_second),
                        BarCell(row.space, use),
                        Bytes(row.space, row.used_bytes),
                        Bytes(row.space, row.available_bytes, full),
                        Bytes(row.space, row.total_bytes)});
    }
    return TableSection({"directory", "directories"},
                        {{"Directory", Kind::Name, 8},
                         {"Disk", Kind::Name, 8, 1},
                         {"", Kind::Drawing, 8, 3},
                         {"Busy", Kind::Figure, 5},
                         {"Ops/s", Kind::Figure, 6},
                         {"Full", Kind::Drawing, 8, 2},
                         {"Used", Kind::Figure, 6},
                         {"Avail", Kind::Figure, 6},
                         {"Total", Kind::Figure, 6}},
                        rows, columns);
}

Section ProcessSection(const std::vector<ProcessFigures>& processes, const Histories& histories,
                       size_t columns) {
    std::vector<TableRow> rows;
    for (const ProcessFigures& row : processes) {
        FamilyStatus thread = row.cpu;
        if (!row.thread_peak_percent) {
            thread.state = FigureState::Failed;
        }
        const int32_t busiest = row.thread_peak_percent.value_or(0);
        rows.push_back({{ProcessName(row)},
                        row.running ? TableCell{std::to_string(row.pid) + " "}
                                    : TableCell{"gone ", Style::Alarm},
                        Percent(row.cpu, row.cpu_peak_percent),
                        GraphCell(histories.Of("process:" + row.target), PERCENT),
                        Percent(thread, busiest, busiest >= static_cast<int32_t>(HIGH_PERCENT)),
                        Bytes(row.memory, row.resident_mib * BYTES_PER_MIB),
                        Bytes(row.memory, row.virtual_mib * BYTES_PER_MIB)});
    }
    return TableSection({"process", "processes"},
                        {{"Process", Kind::Name, 6},
                         {"PID", Kind::Figure, 5},
                         {"CPU", Kind::Figure, 5},
                         {"History", Kind::Drawing, 10, 2},
                         {"Thread", Kind::Figure, 5},
                         {"Res", Kind::Figure, 6},
                         {"Virt", Kind::Figure, 6}},
                        rows, columns);
}

}  // namespace corvane::program
