#include "live_view.h"

#include <langinfo.h>
#include <ncurses.h>
#include <spdlog/fmt/fmt.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "terminal_text.h"

namespace corvane::program {

namespace {

enum Graph { CPU, MEMORY, RECEIVE, TRANSMIT, FIRST_DISK };

constexpr size_t MAX_HISTORY = 1024;  // wider than any screen
constexpr int MIN_GRAPH_HEIGHT = 4;
constexpr int COLUMNS_OF_GRAPHS = 2;
constexpr short GRAPH_COLOUR = 1;
constexpr double NOT_MEASURED = -1.0;
constexpr double PERCENT = 100.0;
constexpr double BYTES_PER_MEGABIT = 1000000.0 / 8.0;

// A column of a graph is drawn in eighths of a character.
constexpr int EIGHTHS = 8;
constexpr const char* BLOCKS[] = {" ",      "\u2581", "\u2582", "\u2583", "\u2584",
                                  "\u2585", "\u2586", "\u2587", "\u2588"};

void Print(int row, int column, int width, const std::string& text) {
    if (row >= 0 && row < LINES && column < COLS && width > 0) {
        const auto columns = static_cast<size_t>(std::min(width, COLS - column));
        mvaddstr(row, column, FitColumns(text, columns).c_str());
    }
}

}  // namespace

LiveView::LiveView() {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
        throw std::runtime_error("--watch needs a terminal");
    }
    setlocale(LC_CTYPE, "");
    m_block_characters = strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    if (newterm(nullptr, stdout, stdin) == nullptr) {
        throw std::runtime_error("--watch: the terminal's type is not known (TERM)");
    }
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    curs_set(0);
    if (has_colors() && getenv("NO_COLOR") == nullptr) {
        start_color();
        use_default_colors();
        init_pair(GRAPH_COLOUR, COLOR_CYAN, -1);
    }
    m_graphs = {{"CPU", "%", 0, {}, ""},
                {"Memory", "%", PERCENT, {}, ""},
                {"Receive", "Mbit/s", 0, {}, ""},
                {"Transmit", "Mbit/s", 0, {}, ""}};
    Print(0, 0, COLS, "corvane-monitor   measuring the first interval ...   q quits");
    refresh();
}

LiveView::~LiveView() {
    endwin();
}

void LiveView::Add(size_t graph, double value, bool measured, std::string latest) {
    History& history = m_graphs[graph];
    history.values.push_back(measured ? value : NOT_MEASURED);
    history.latest = measured ? std::move(latest) : "-";
    if (history.values.size() > MAX_HISTORY) {
        history.values.pop_front();
    }
}

void LiveView::Show(const Report& report) {
    m_report = report;
    if (!report.notes.empty()) {
        m_last_note = report.notes.back();
    }
    const auto measured = [](const FamilyStatus& status) { return status.HasFigures(); };
    m_graphs[CPU].full_scale = PERCENT * report.cpu.core_number;
    Add(CPU, report.cpu.peak_percent, measured(report.cpu.status),
        fmt::format("{} of {} %", report.cpu.peak_percent, 100 * report.cpu.core_number));
    const double share = report.memory.total_mib == 0
                             ? 0
                             : PERCENT * static_cast<double>(report.memory.used_mib) /
                                   static_cast<double>(report.memory.total_mib);
    Add(MEMORY, share, measured(report.memory.status),
        fmt::format("{} of {} MiB", report.memory.used_mib, report.memory.total_mib));
    const auto add_network = [&](size_t graph, const TrafficPeak& peak) {
        Add(graph, static_cast<double>(peak.bytes_per_second) / BYTES_PER_MEGABIT,
            measured(report.network.status),
            fmt::format("{} Mbit/s {}", peak.bytes_per_second * 8 / 1000000, peak.interface));
    };
    add_network(RECEIVE, report.network.receive);
    add_network(TRANSMIT, report.network.transmit);
    for (size_t i = 0; i < report.directories.size(); ++i) {
        const DirectoryFigures& row = report.directories[i];
        if (m_graphs.size() <= FIRST_DISK + i) {
            m_graphs.push_back({"Disk of " + row.directory, "%", PERCENT, {}, ""});
        }
        Add(FIRST_DISK + i, row.busy_percent, measured(row.io),
            fmt::format("{} {} % busy {} ops/s", row.disk, row.busy_percent,
                        row.operations_per_second));
    }
    Draw();
}

bool LiveView::HandleInput() {
    for (int key = getch(); key != ERR; key = getch()) {
        if (key == 'q' || key == 'Q') {
            return false;
        }
        if (key == KEY_RESIZE) {
            clear();
            Draw();
        }
    }
    return true;
}

int LiveView::DrawProcesses(int row) {
    const int last = LINES - 1;
    for (const ProcessFigures& process : m_report.processes) {
        if (row >= last) {
            break;
        }
        const bool fresh = process.cpu.HasFigures();
        const std::string figures =
            !process.running
                ? std::string("gone")
                : fmt::format("CPU {} %  busiest thread {} %  resident {} MiB",
                              fresh ? std::to_string(process.cpu_peak_percent) : "-",
                              fresh ? std::to_string(process.thread_peak_percent.value_or(0)) : "-",
                              process.resident_mib);
        Print(row++, 0, COLS,
              fmt::format("{:>10} {} {}", process.pid, FitColumns(process.command, 16), figures));
    }
    return row;
}

void LiveView::Draw() {
    erase();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(m_report.time);
    std::tm local = {};
    localtime_r(&seconds, &local);
    char time[16] = {};
    strftime(time, sizeof(time), "%H:%M:%S", &local);
    attron(A_BOLD);
    Print(0, 0, COLS,
          fmt::format("corvane-monitor   {}   peaks of {} s   q quits", time,
                      m_report.interval_seconds));
    attroff(A_BOLD);

    const int process_rows = static_cast<int>(std::min<size_t>(m_report.processes.size(), 5));
    const int graph_rows =
        (static_cast<int>(m_graphs.size()) + COLUMNS_OF_GRAPHS - 1) / COLUMNS_OF_GRAPHS;
    const int room = std::max(0, LINES - 2 - process_rows);
    const int height = std::max(MIN_GRAPH_HEIGHT, graph_rows == 0 ? 0 : room / graph_rows);
    const int width = COLS / COLUMNS_OF_GRAPHS;
    for (size_t i = 0; i < m_graphs.size(); ++i) {
        const int top = 1 + static_cast<int>(i) / COLUMNS_OF_GRAPHS * height;
        const int left = static_cast<int>(i) % COLUMNS_OF_GRAPHS * width;
        if (top + height <= LINES - 1 - process_rows) {
            DrawGraph(m_graphs[i], top, left, height, width - 1);
        }
    }
    DrawProcesses(LINES - 1 - process_rows);
    Print(LINES - 1, 0, COLS - 1, m_last_note);
    refresh();
}

void LiveView::DrawGraph(const History& history, int top, int left, int height, int width) const {
    attron(A_BOLD);
    Print(top, left, width, fmt::format("{}: {}", history.title, history.latest));
    attroff(A_BOLD);
    const int rows = height - 1;
    const auto shown = std::min(history.values.size(), static_cast<size_t>(std::max(0, width)));
    double scale = history.full_scale;
    if (scale <= 0) {
        scale = 1;
        for (size_t i = history.values.size() - shown; i < history.values.size(); ++i) {
            scale = std::max(scale, history.values[i]);
        }
    }
    attron(COLOR_PAIR(GRAPH_COLOUR));
    for (size_t i = 0; i < shown; ++i) {
        const double value = history.values[history.values.size() - shown + i];
        const int column = left + width - static_cast<int>(shown) + static_cast<int>(i);
        const double share = std::clamp(value / scale, 0.0, 1.0);
        int eighths = static_cast<int>(std::lround(share * rows * EIGHTHS));
        for (int row = top + rows; row > top && row < LINES; --row) {
            const int filled = std::clamp(eighths, 0, EIGHTHS);
            eighths -= EIGHTHS;
            if (value < 0) {
                mvaddstr(row, column, row == top + rows ? "?" : " ");
            } else if (m_block_characters) {
                mvaddstr(row, column, BLOCKS[filled]);
            } else {
                mvaddstr(row, column, filled >= EIGHTHS / 2 ? "#" : " ");
            }
        }
    }
    attroff(COLOR_PAIR(GRAPH_COLOUR));
}

}  // namespace corvane::program
