// What the live view shows, for a report and a size: lines of text, without any terminal.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "live_cells.h"
#include "live_graph.h"
#include "report.h"

namespace corvane::program {

/// The least that everything has room in.
constexpr size_t MIN_COLUMNS = 40;
constexpr size_t MIN_ROWS = 12;

/// What is on the screen: the newest report, or an older one while the view is paused.
struct LiveModel {
    std::shared_ptr<const Report> report;  ///< null: none yet
    Histories histories;
};

struct LiveState {
    size_t columns = 0;
    size_t rows = 0;
    size_t scroll = 0;  ///< lines that are scrolled out at the top
    bool paused = false;
    bool help = false;
    bool all_cores = false;       ///< each core with its figure, however many lines that takes
    std::chrono::seconds age{0};  ///< of the newest report
    std::string host = {};        ///< this machine's name
    std::vector<std::string> log = {};  ///< newest last
};

struct Screen {
    std::vector<Line> lines;         ///< as many as there are rows, none wider than the screen
    size_t last_scroll = 0;          ///< where the last line is in sight
    size_t page = 1;                 ///< lines that scroll
    std::vector<size_t> parts = {};  ///< where to scroll for the graphs, directories and so on
};

/// Below the least size only a line that says so.
Screen LayOut(const LiveModel& model, const LiveState& state);

}  // namespace corvane::program
