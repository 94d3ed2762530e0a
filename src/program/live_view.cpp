#include "live_view.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <utility>

namespace corvane::program {

namespace {

constexpr size_t MAX_LOG_LINES = 32;  // more than the pane has rows

std::string HostName() {
    std::array<char, HOST_NAME_MAX + 1> name = {};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace

LiveView::LiveView() {
    m_state.host = HostName();
    Draw();
}

void LiveView::Show(std::shared_ptr<const Report> report) {
    m_model.histories.Add(*report);
    m_model.report = std::move(report);
    Draw();
}

bool LiveView::HandleInput() {
    bool any = false;
    while (const std::optional<Key> key = m_terminal.Read()) {
        if (*key == Key::Quit) {
            return false;
        }
        Act(*key);
        any = true;
    }
    if (any) {
        Draw();
    }
    return true;
}

void LiveView::Tick() {
    Draw();
}

void LiveView::AddLogLine(const std::string& line) {
    const std::lock_guard lock(m_log_mutex);
    m_log.push_back(line);
    if (m_log.size() > MAX_LOG_LINES) {
        m_log.pop_front();
    }
}

void LiveView::Act(Key key) {
    switch (key) {
        case Key::Help:
            m_state.help = !m_state.help;
            m_state.scroll = std::exchange(m_scroll_before_help, m_state.help ? m_state.scroll : 0);
            break;
        case Key::Pause:
            m_state.paused = !m_state.paused;
            m_paused = m_state.paused ? std::optional(m_model) : std::nullopt;
            break;
        case Key::Cores:
            m_state.all_cores = !m_state.all_cores;
            break;
        default:
            Scroll(key);
            break;
    }
}

void LiveView::Scroll(Key key) {
    const size_t step = key == Key::PageUp || key == Key::PageDown ? std::max<size_t>(1, m_page - 1)
                                                                   : 1;
    if (key == Key::Up || key == Key::PageUp) {
        m_state.scroll -= std::min(m_state.scroll, step);
    } else if (key == Key::Down || key == Key::PageDown) {
        m_state.scroll = std::min(m_last_scroll, m_state.scroll + step);
    } else if (key == Key::Home) {
        m_state.scroll = 0;
    } else if (key == Key::End) {
        m_state.scroll = m_last_scroll;
    }
}

void LiveView::Draw() {
    m_terminal.UpdateSize();
    m_state.columns = m_terminal.Columns();
    m_state.rows = m_terminal.Rows();
    if (m_model.report != nullptr) {
        m_state.age = std::chrono::duration_cast<std::chrono::seconds>(
            std::chrono::steady_clock::now() - m_model.report->measured_at);
    }
    {
        const std::lock_guard lock(m_log_mutex);
        m_state.log.assign(m_log.begin(), m_log.end());
    }
    const Screen screen = LayOut(m_paused ? *m_paused : m_model, m_state);
    m_last_scroll = screen.last_scroll;
    m_page = screen.page;
    m_state.scroll = std::min(m_state.scroll, m_last_scroll);
    m_terminal.Draw(screen.lines);
}

}  // namespace corvane::program
