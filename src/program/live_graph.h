// The past of figures, and graphs of it.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "live_cells.h"
#include "report.h"

namespace corvane::program {

/// Newest last; a negative value was not measured.
using Samples = std::deque<float>;

/// One sample a report for each figure that is drawn.
class Histories {
public:
    void Add(const Report& report);

    /// Of a figure by its key: "cpu" (percent), "memory" (percent), "receive", "transmit" (bytes
    /// per second), "receive:INTERFACE", "transmit:INTERFACE", "disk:KEY" (percent busy; see
    /// DiskKey), "process:TARGET" (percent of a core). Empty for one that is not known. Valid until
    /// the next Add.
    const Samples& Of(const std::string& key) const;

private:
    std::map<std::string, Samples> m_samples;
};

/// What a directory's busy time is kept under: directories on one disk have one.
std::string DiskKey(const DirectoryFigures& directory);

/// Used memory, in percent of all.
double MemoryShare(const MemoryFigures& memory);

/// A figure now and its past.
struct Graph {
    std::string title;
    bool high = false;  ///< the title's figure is alarming
    const Samples* samples = nullptr;
    double full_scale = 0;  ///< percent; 0: bytes per second, up to a round number above all shown
};

/// All graphs of a report: CPU, memory, the two directions of the network, each disk.
std::vector<Graph> Graphs(const Report& report, const Histories& histories);

/// The newest samples in `rows` lines of exactly `columns`, the newest at the right. With `alarms`
/// those near the full scale stand out.
std::vector<Line> Plot(const Samples& samples, double full_scale, bool alarms, size_t rows,
                       size_t columns);

/// A graph under its title in `height` lines; of height 1, beside it.
std::vector<Line> DrawGraph(const Graph& graph, size_t height, size_t columns);

}  // namespace corvane::program
