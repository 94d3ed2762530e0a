// The full-screen view: all of a report over graphs of the past, with keys to move about in it.
#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "live_layout.h"
#include "live_terminal.h"
#include "report.h"

namespace corvane::program {

/// Owns the terminal while it lives; the destructor restores it. One at a time. All but AddLogLine
/// belongs to one thread.
class LiveView {
public:
    /// @throws std::runtime_error see LiveTerminal
    LiveView();

    /// Adds a report to the history and draws it.
    void Show(std::shared_ptr<const Report> report);

    /// Takes what was typed and follows a change of size. False: the user quits.
    bool HandleInput();

    /// Draws again; to be called about once a second, so that the age of figures shows.
    void Tick();

    /// Keeps a log record for the pane that shows the last ones from the next drawing on. Safe to
    /// call from any thread.
    void AddLogLine(const std::string& line);

private:
    void Draw();
    void Act(Key key);
    void Scroll(Key key);

    LiveTerminal m_terminal;
    LiveModel m_model;
    std::optional<LiveModel> m_paused;  // what stands still while m_model goes on
    LiveState m_state;
    size_t m_scroll_before_help = 0;
    Screen m_screen;  // as drawn last
    std::mutex m_log_mutex;
    std::deque<std::string> m_log;
};

}  // namespace corvane::program
