#include "live_graph.h"

#include <spdlog/fmt/fmt.h>

#include <algorithm>
#include <cmath>

#include "scaled_text.h"
#include "terminal_text.h"

namespace corvane::program {

namespace {

constexpr size_t MAX_SAMPLES = 1024;  // wider than any screen
constexpr float NOT_MEASURED = -1.0F;
constexpr double PERCENT = 100.0;
constexpr double HIGH_SHARE = 0.9;
constexpr double BYTES_PER_MIB = 1024.0 * 1024.0;
constexpr size_t DISK_COLUMNS = 16;

/// What a report says of the figures with a history, by key.
std::map<std::string, float> SamplesOf(const Report& report) {
    std::map<std::string, float> samples;
    const auto add = [&](const std::string& key, const FamilyStatus& status, double value) {
        samples[key] = status.HasFigures() ? static_cast<float>(value) : NOT_MEASURED;
    };
    add("cpu", report.cpu.status, report.cpu.peak_percent);
    add("memory", report.memory.status, MemoryShare(report.memory));
    const NetworkFigures& network = report.network;
    add("receive", network.status, static_cast<double>(network.receive.bytes_per_second));
    add("transmit", network.status, static_cast<double>(network.transmit.bytes_per_second));
    for (const InterfaceFigures& row : network.interfaces) {
        add("receive:" + row.name, network.status,
            static_cast<double>(row.receive_bytes_per_second));
        add("transmit:" + row.name, network.status,
            static_cast<double>(row.transmit_bytes_per_second));
    }
    for (const DirectoryFigures& row : report.directories) {
        if (row.io.state != FigureState::Absent) {
            add("disk:" + DiskKey(row), row.io, row.busy_percent);
        }
    }
    for (const ProcessFigures& row : report.processes) {
        add("process:" + row.target, row.cpu, std::max(0, row.cpu_peak_percent));
    }
    return samples;
}

/// What a scale ends at: 1, 2 or 5 and zeros.
double RoundAbove(double value) {
    const double power = std::pow(10.0, std::floor(std::log10(std::max(1.0, value))));
    for (const double step : {1.0, 2.0, 5.0}) {
        if (value <= step * power) {
            return step * power;
        }
    }
    return 10.0 * power;
}

/// The highest of the newest samples.
double Highest(const Samples& samples, size_t shown) {
    const auto count = static_cast<std::ptrdiff_t>(std::min(shown, samples.size()));
    const auto highest = std::max_element(samples.end() - count, samples.end());
    return highest == samples.end() ? 0 : *highest;
}

double Scale(const Graph& graph, size_t columns) {
    return graph.full_scale > 0 ? graph.full_scale : RoundAbove(Highest(*graph.samples, columns));
}

/// A figure in a title: with a '*' when it is stale.
std::string Figure(const FamilyStatus& status, const std::string& text) {
    if (!status.HasFigures()) {
        return "-";
    }
    return status.state == FigureState::Stale ? text + "*" : text;
}

Graph CpuGraph(const CpuFigures& cpu, const Histories& histories) {
    Graph graph = {"CPU " + Figure(cpu.status, fmt::format("{}", cpu.peak_percent)), false,
                   &histories.Of("cpu"), PERCENT * std::max(1U, cpu.core_number)};
    if (cpu.core_number > 0) {
        graph.title += fmt::format(" of {}", static_cast<uint64_t>(graph.full_scale));
    }
    graph.title += " %";
    if (cpu.latest_percent) {
        graph.title += fmt::format(", now {} %", *cpu.latest_percent);
    }
    graph.high = cpu.status.HasFigures() && cpu.peak_percent >= HIGH_SHARE * graph.full_scale;
    return graph;
}

Graph MemoryGraph(const MemoryFigures& memory, const Histories& histories) {
    const auto bytes = [](uint64_t mib) {
        return Scaled(static_cast<double>(mib) * BYTES_PER_MIB, Prefix::Binary) + "iB";
    };
    const std::string text = fmt::format("{} of {}, {:.0f} %", bytes(memory.used_mib),
                                         bytes(memory.total_mib), MemoryShare(memory));
    return {"Memory " + Figure(memory.status, text),
            memory.status.HasFigures() && MemoryShare(memory) >= HIGH_SHARE * PERCENT,
            &histories.Of("memory"), PERCENT};
}

Graph TrafficGraph(const char* title, const FamilyStatus& status, const TrafficPeak& peak,
                   const Samples& samples) {
    const std::string rate =
        Scaled(static_cast<double>(peak.bytes_per_second), Prefix::Decimal) + "B/s";
    std::string text = fmt::format("{} {}", title, Figure(status, rate));
    if (status.HasFigures()) {
        text += " " + peak.interface;
    }
    return {text, false, &samples, 0};
}

void AddDiskGraphs(const Report& report, const Histories& histories, std::vector<Graph>& graphs) {
    std::map<std::string, size_t> graph_of;  // a disk's
    for (const DirectoryFigures& row : report.directories) {
        if (row.io.state == FigureState::Absent) {
            continue;
        }
        const auto [place, is_new] = graph_of.emplace(DiskKey(row), graphs.size());
        if (!is_new) {
            graphs[place->second].title += ", " + row.directory;
            continue;
        }
        std::string disk = row.disk.empty() ? "?" : row.disk;
        disk = FitColumns(disk, std::min(DISK_COLUMNS, ColumnsOf(disk)));
        const std::string figures = Figure(row.io, fmt::format("{} %", row.busy_percent));
        graphs.push_back({fmt::format("Disk {} {} {}", disk, figures, row.directory),
                          row.io.HasFigures() && row.busy_percent >= HIGH_SHARE * PERCENT,
                          &histories.Of("disk:" + place->first), PERCENT});
    }
}

}  // namespace

void Histories::Add(const Report& report) {
    std::map<std::string, float> now = SamplesOf(report);
    // What a good report does not name is gone; a bad one leaves a gap in all that it misses.
    const bool complete = report.network.status.state == FigureState::Fresh;
    for (auto history = m_samples.begin(); history != m_samples.end();) {
        if (complete && now.count(history->first) == 0) {
            history = m_samples.erase(history);
        } else {
            now.emplace(history->first, NOT_MEASURED);
            ++history;
        }
    }
    for (const auto& [key, value] : now) {
        Samples& samples = m_samples[key];
        samples.push_back(value);
        if (samples.size() > MAX_SAMPLES) {
            samples.pop_front();
        }
    }
}

const Samples& Histories::Of(const std::string& key) const {
    static const Samples NONE;
    const auto found = m_samples.find(key);
    return found == m_samples.end() ? NONE : found->second;
}

std::string DiskKey(const DirectoryFigures& directory) {
    return directory.disk.empty() ? "/" + directory.directory : directory.disk;
}

double MemoryShare(const MemoryFigures& memory) {
    return memory.total_mib == 0 ? 0
                                 : PERCENT * static_cast<double>(memory.used_mib) /
                                       static_cast<double>(memory.total_mib);
}

std::vector<Graph> Graphs(const Report& report, const Histories& histories) {
    const NetworkFigures& network = report.network;
    std::vector<Graph> graphs = {
        CpuGraph(report.cpu, histories), MemoryGraph(report.memory, histories),
        TrafficGraph("Receive", network.status, network.receive, histories.Of("receive")),
        TrafficGraph("Transmit", network.status, network.transmit, histories.Of("transmit"))};
    AddDiskGraphs(report, histories, graphs);
    return graphs;
}

std::vector<Line> Plot(const Samples& samples, double full_scale, bool alarms, size_t rows,
                       size_t columns) {
    const size_t shown = std::min(samples.size(), columns);
    const auto full = static_cast<double>(rows * EIGHTHS);
    std::vector<Line> lines(rows, {{std::string(columns - shown, ' '), Style::Graph}});
    for (size_t i = samples.size() - shown; i < samples.size(); ++i) {
        const double value = samples[i];
        const double share = std::clamp(value / full_scale, 0.0, 1.0);
        const auto least = static_cast<size_t>(value > 0 ? 1 : 0);
        const size_t eighths = std::max(least, static_cast<size_t>(std::lround(share * full)));
        const bool high = alarms && share >= HIGH_SHARE;
        const Style style = high ? Style::HighGraph : Style::Graph;
        for (size_t row = 0; row < rows; ++row) {
            const size_t below = (rows - 1 - row) * EIGHTHS;
            const char* cell = Column(eighths - std::min(eighths, below));
            if (below == 0 && eighths == 0) {
                cell = value < 0 ? GAP : "_";
            }
            Line& line = lines[row];
            if (line.back().style != style) {
                line.push_back({"", style});
            }
            line.back().text += cell;
            ++line.back().columns;
        }
    }
    return lines;
}

std::vector<Line> DrawGraph(const Graph& graph, size_t height, size_t columns) {
    const Span title = {Printable(graph.title), graph.high ? Style::Alarm : Style::Title};
    if (height <= 1) {
        const size_t room = columns - std::min(columns, ColumnsOf(title.text) + 1);
        const Line plot =
            Plot(*graph.samples, Scale(graph, room), graph.full_scale > 0, 1, room).front();
        return {Justified({title}, plot, columns)};
    }
    const double scale = Scale(graph, columns);
    std::vector<Line> lines =
        Plot(*graph.samples, scale, graph.full_scale > 0, height - 1, columns);
    // The scale gives way to the title.
    const std::string end =
        "scale " + (graph.full_scale > 0 ? fmt::format("{:.0f} %", scale)
                                         : Scaled(scale, Prefix::Decimal) + "B/s");
    const bool both = ColumnsOf(title.text) + 2 + end.size() <= columns;
    const Line right = both ? Line{{end, Style::Quiet}} : Line{};
    lines.insert(lines.begin(), Justified({title}, right, columns));
    return lines;
}

}  // namespace corvane::program
