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
    const bool page = key == Key::PageUp || key == Key::PageDown;
    const size_t step = page ? std::max<size_t>(2, m_screen.page) - 1 : 1;
    size_t& scroll = m_state.scroll;
    if (key == Key::Up || key == Key::PageUp) {
        scroll -= std::min(scroll, step);
    } else if (key == Key::Down || key == Key::PageDown) {
        scroll = std::min(m_screen.last_scroll, scroll + step);
    } else if (key == Key::Home) {
        scroll = 0;
    } else if (key == Key::End) {
        scroll = m_screen.last_scroll;
    } else if (key == Key::NextPart) {
        const auto next = std::find_if(m_screen.parts.begin(), m_screen.parts.end(),
                                       [&](size_t part) { return part > scroll; });
        scroll = next == m_screen.parts.end() || scroll == m_screen.last_scroll
                     ? 0
                     : std::min(*next, m_screen.last_scroll);
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
    m_screen = LayOut(m_paused ? *m_paused : m_model, m_state);
    m_state.scroll = std::min(m_state.scroll, m_screen.last_scroll);
    m_terminal.Draw(m_screen.lines);
}

}  // namespace corvane::program
