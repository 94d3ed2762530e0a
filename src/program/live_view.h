// The full-screen view: the report's figures over history graphs, drawn with ncurses.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "report.h"

namespace corvane::program {

/// Owns the terminal while it lives; the destructor restores it. One at a time.
class LiveView {
public:
    /// Throws std::runtime_error when standard input or output is no terminal, or of no known type.
    LiveView();
    LiveView(const LiveView&) = delete;
    LiveView& operator=(const LiveView&) = delete;
    ~LiveView();

    /// Adds a report to the history and draws it.
    void Show(const Report& report);

    /// Takes what was typed and redraws on a change of size. False: the user quits.
    bool HandleInput();

private:
    /// The past of one figure, newest last; a negative value was not measured.
    struct History {
        std::string title;
        std::string unit;
        double full_scale = 0;  // 0: the highest value on the screen
        std::deque<double> values;
        std::string latest;
    };

    void Add(size_t graph, double value, bool measured, std::string latest);
    void Draw();
    int DrawProcesses(int row);
    void DrawGraph(const History& history, int top, int left, int height, int width) const;

    std::vector<History> m_graphs;
    Report m_report;
    std::string m_last_note;
    bool m_block_characters = false;
};

}  // namespace corvane::program
