#include "live_layout.h"

#include <spdlog/fmt/fmt.h>

#include <algorithm>
#include <ctime>

#include "live_notes.h"
#include "live_sections.h"
#include "terminal_text.h"

namespace corvane::program {

namespace {

constexpr size_t GRAPH_COLUMNS = 38;     // of a graph at least, so that a title has room
constexpr size_t GRAPHS_ABREAST = 4;     // at most
constexpr size_t GRAPHS_GAP = 2;         // columns between two
constexpr size_t GRAPHS_OF_MACHINE = 4;  // CPU, memory, receive, transmit
constexpr size_t NOTE_SHARE = 4;         // notes take a quarter of the screen at most
constexpr size_t CORE_SHARE = 4;         // cores as well
constexpr size_t LOG_SHARE = 6;
constexpr size_t MAX_LOG_ROWS = 8;
constexpr size_t NAMED = 72;  // columns from which on the program's name stands at the top
constexpr size_t ROOMY = 20;  // lines from which on graphs have their own, below the title
constexpr size_t NO_HEADING = SIZE_MAX;
constexpr auto LATE = std::chrono::seconds(2);  // beyond the interval

/// A line of what scrolls.
struct BodyRow {
    Line line;
    Noun noun = {};
    size_t items = 0;             // shown in it
    size_t heading = NO_HEADING;  // the row that stands above it when it is the first in sight
};

using Body = std::vector<BodyRow>;

std::string LocalTime(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local = {};
    localtime_r(&seconds, &local);
    char text[16] = {};
    strftime(text, sizeof(text), "%H:%M:%S", &local);
    return text;
}

Line Header(const LiveModel& model, const LiveState& state) {
    Line right;
    if (state.paused) {
        right.push_back({"paused", Style::Alarm});
    }
    if (model.report == nullptr) {
        return Justified({{"corvane-monitor " + Printable(state.host), Style::Title}}, right,
                         state.columns);
    }
    if (state.age >= std::chrono::seconds(model.report->interval_seconds) + LATE) {
        right.push_back({right.empty() ? "" : " "});
        right.push_back({fmt::format("figures are {} s old", state.age.count()), Style::Alarm});
    }
    const std::string text = fmt::format(
        "{}{}  {}  peaks of {} s", state.columns >= NAMED ? "corvane-monitor  " : "",
        LocalTime(model.report->time), Printable(state.host), model.report->interval_seconds);
    return Justified({{text, Style::Title}}, right, state.columns);
}

/// As many keys as have room, the most needed first.
Line Footer(const LiveState& state) {
    static constexpr const char* KEYS[] = {"q quit",    "? help",   "p pause",  "arrows scroll",
                                           "PgUp PgDn", "Home End", "Tab part", "c cores"};
    static constexpr const char* HELP_KEYS[] = {"q quit", "? back", "arrows scroll"};
    Line line;
    size_t used = 0;
    const auto add = [&](const char* key) {
        const std::string text = used == 0 ? key : std::string("  ") + key;
        if (used + text.size() <= state.columns) {
            line.push_back({text, Style::Quiet});
            used += text.size();
        }
    };
    if (state.help) {
        std::for_each(std::begin(HELP_KEYS), std::end(HELP_KEYS), add);
    } else {
        std::for_each(std::begin(KEYS), std::end(KEYS), add);
    }
    return line;
}

Body HelpBody() {
    static constexpr const char* TEXT[] = {
        "q        quit",
        "?        this help, and back",
        "p        pause: figures stand still,",
        "         measuring goes on",
        "c        each core with its figure",
        "arrows   scroll; also j and k",
        "PgUp PgDn, Home End   scroll further;",
        "         also b, blank, g and G",
        "Tab      to the next part",
        "",
        "-        not measured; notes say why",
        "*        older: the latest measurement",
        "         failed",
        "\u00B7        in a graph: not measured",
        "_        in a graph: nothing, measured",
        "k M G    figures: 1000, in bytes of",
        "         memory and space 1024",
        "reverse  90 % or more of what there is",
        "Avail    to users, without what root",
        "         keeps",
        "Thread   the process's busiest",
    };
    Body body;
    for (const char* text : TEXT) {
        body.push_back({{{text}}, {"line", "lines"}, 1});
    }
    return body;
}

/// `graphs` from `first` to before `end`, side by side, in `height` lines.
void AddGraphRow(const std::vector<Graph>& graphs, size_t first, size_t end, size_t height,
                 size_t columns, Body& body) {
    const size_t start = body.size();
    body.resize(start + height);
    const size_t count = end - first;
    size_t left = columns - (count - 1) * GRAPHS_GAP;
    for (size_t i = first; i < end; ++i) {
        const size_t width = left / (end - i);
        left -= width;
        const std::vector<Line> lines = DrawGraph(graphs[i], height, width);
        for (size_t row = 0; row < height; ++row) {
            Line& line = body[start + row].line;
            line.insert(line.end(), lines[row].begin(), lines[row].end());
            line.push_back({std::string(GRAPHS_GAP, ' ')});
        }
    }
    for (size_t row = start; row < body.size(); ++row) {
        body[row].noun = {"graph", "graphs"};
    }
    body[start].items = count;
}

/// How many graphs stand side by side, so that rows are evenly filled.
size_t Abreast(size_t graphs, size_t columns) {
    const size_t most = std::clamp<size_t>(columns / GRAPH_COLUMNS, 1, GRAPHS_ABREAST);
    const size_t rows = (graphs + most - 1) / most;
    return rows == 0 ? 1 : (graphs + rows - 1) / rows;
}

size_t GraphRows(size_t graphs, size_t columns) {
    const size_t abreast = Abreast(graphs, columns);
    return (graphs + abreast - 1) / abreast;
}

/// Rows of graphs, `height` lines together.
void AddGraphs(const std::vector<Graph>& graphs, size_t height, size_t columns, Body& body) {
    const size_t abreast = Abreast(graphs.size(), columns);
    size_t rows = GraphRows(graphs.size(), columns);
    for (size_t first = 0; first < graphs.size(); first += abreast) {
        const size_t row_height = (height + rows - 1) / rows;
        AddGraphRow(graphs, first, std::min(graphs.size(), first + abreast), row_height, columns,
                    body);
        height -= row_height;
        --rows;
    }
}

void AddSection(const Section& section, Body& body) {
    const size_t heading = section.heading.empty() ? NO_HEADING : body.size();
    if (!section.heading.empty()) {
        body.push_back({section.heading, section.noun});
    }
    for (const Section::Row& row : section.rows) {
        body.push_back({row.line, section.noun, row.items, heading});
    }
}

/// All tables. What was asked for comes before what is simply there, in whatever number.
Body Tables(const LiveModel& model, const LiveState& state, size_t rows) {
    const Report& report = *model.report;
    const size_t core_rows = state.all_cores ? 0 : std::max<size_t>(2, rows / CORE_SHARE);
    Body body;
    AddSection(CoreSection(report.cpu, state.columns, core_rows), body);
    AddSection(DirectorySection(report.directories, state.columns), body);
    AddSection(ProcessSection(report.processes, model.histories, state.columns), body);
    AddSection(InterfaceSection(report.network, model.histories, state.columns), body);
    return body;
}

/// The notes but for the first `notes_above` lines.
Body FurtherNotes(const Report& report, size_t columns, size_t notes_above) {
    Section notes = NoteSection(report, true, columns);
    const auto first = notes.rows.begin();
    notes.rows.erase(first, first + static_cast<std::ptrdiff_t>(notes_above));
    Body body;
    if (!notes.rows.empty()) {
        AddSection(notes, body);
    }
    return body;
}

void Append(Body& body, const Body& more) {
    const size_t before = body.size();
    for (BodyRow row : more) {
        row.heading += row.heading == NO_HEADING ? 0 : before;
        body.push_back(std::move(row));
    }
}

/// All of a report. Graphs take what tables and notes leave of `rows`; when that is too little,
/// notes give way, then graphs are low and those of disks stand behind the tables.
Body ReportBody(const LiveModel& model, const LiveState& state, size_t rows, size_t notes_above) {
    const Body tables = Tables(model, state, rows);
    const Body notes = FurtherNotes(*model.report, state.columns, notes_above);
    std::vector<Graph> graphs = Graphs(*model.report, model.histories);
    std::vector<Graph> disks;
    size_t graph_rows = GraphRows(graphs.size(), state.columns);
    const size_t least = rows >= ROOMY ? 2 : 1;
    const size_t usual = rows >= ROOMY ? 4 : 1;
    size_t left = rows - std::min(rows, tables.size() + notes.size());
    if (left < least * graph_rows && !notes.empty()) {
        left = rows - std::min(rows, tables.size() + 1);  // a line counts the notes
    }
    if (left < least * graph_rows) {
        disks.assign(graphs.begin() + GRAPHS_OF_MACHINE, graphs.end());
        graphs.resize(GRAPHS_OF_MACHINE);
        graph_rows = GraphRows(graphs.size(), state.columns);
        left = std::max(left, usual * graph_rows);
    }
    Body body;
    AddGraphs(graphs, left, state.columns, body);
    Append(body, tables);
    AddGraphs(disks, usual * GraphRows(disks.size(), state.columns), state.columns, body);
    Append(body, notes);
    return body;
}

/// The last records, wrapped, as many as have room; of a long one the end.
std::vector<Line> LogLines(const std::vector<std::string>& log, size_t columns, size_t rows) {
    std::vector<Line> lines;
    for (auto record = log.rbegin(); record != log.rend() && lines.size() < rows; ++record) {
        const std::vector<std::string> wrapped = Wrapped(*record, columns);
        if (!lines.empty() && lines.size() + wrapped.size() > rows) {
            break;
        }
        for (auto line = wrapped.rbegin(); line != wrapped.rend() && lines.size() < rows; ++line) {
            lines.insert(lines.begin(), {{*line, Style::Quiet}});
        }
    }
    if (!lines.empty()) {
        lines.insert(lines.begin(), {{FitColumns("Log", columns), Style::Title}});
    }
    return lines;
}

/// Counts by noun, in the order in which they come up.
std::string Counted(const Body& body, size_t first, size_t end) {
    std::vector<std::pair<Noun, size_t>> counts;
    for (size_t i = first; i < end; ++i) {
        if (body[i].items == 0) {
            continue;
        }
        if (counts.empty() || counts.back().first.many != body[i].noun.many) {
            counts.emplace_back(body[i].noun, 0);
        }
        counts.back().second += body[i].items;
    }
    std::string text;
    for (const auto& [noun, count] : counts) {
        text += fmt::format("{}{} {}", text.empty() ? "+" : ", ", count,
                            count == 1 ? noun.one : noun.many);
    }
    return text;
}

/// What is not in sight, in one line: by kind where that has room, otherwise in all.
Line MoreLine(const Body& body, size_t first, size_t end, size_t columns) {
    const auto total = [&](size_t from, size_t to) {
        size_t items = 0;
        for (size_t i = from; i < to; ++i) {
            items += body[i].items;
        }
        return items;
    };
    const auto told = [](const std::string& above, const std::string& below) {
        return (below.empty() ? "" : below + " more below") +
               (above.empty() || below.empty() ? "" : "; ") +
               (above.empty() ? "" : above + " above");
    };
    const auto number = [](size_t items) {
        return items == 0 ? std::string() : fmt::format("+{}", items);
    };
    const std::string text = told(Counted(body, 0, first), Counted(body, end, body.size()));
    const std::string brief = told(number(total(0, first)), number(total(end, body.size())));
    return {{FitColumns(ColumnsOf(text) <= columns ? text : brief, columns), Style::Title}};
}

/// The part of the body that is scrolled to, in `rows` lines at most.
void AddBody(const Body& body, size_t scroll, size_t rows, size_t columns, Screen& screen) {
    if (body.size() <= rows) {
        for (const BodyRow& row : body) {
            screen.lines.push_back(row.line);
        }
        return;
    }
    for (size_t i = 1; i < body.size(); ++i) {
        if (body[i].noun.many != body[i - 1].noun.many) {
            screen.parts.push_back(i);
        }
    }
    screen.page = rows - 1;
    screen.last_scroll = body.size() - screen.page;
    const size_t first = std::min(scroll, screen.last_scroll);
    const size_t end = first + screen.page;
    const bool headed = body[first].heading != NO_HEADING && body[first].heading < first;
    for (size_t i = first; i < end; ++i) {
        screen.lines.push_back(i == first && headed ? body[body[i].heading].line : body[i].line);
    }
    screen.lines.push_back(MoreLine(body, headed ? first + 1 : first, end, columns));
}

/// What does not fit in `rows` lines of notes: counted here, told below.
Line MoreNotes(const Section& notes, size_t shown) {
    size_t left = 0;
    for (size_t i = shown; i < notes.rows.size(); ++i) {
        left += notes.rows[i].items;
    }
    left = std::max<size_t>(1, left);  // the end of the last one is a note, too
    return {{fmt::format("+{} more {} below", left, left == 1 ? notes.noun.one : notes.noun.many),
             Style::Title}};
}

}  // namespace

Screen LayOut(const LiveModel& model, const LiveState& state) {
    Screen screen;
    if (state.columns < MIN_COLUMNS || state.rows < MIN_ROWS) {
        screen.lines.resize(state.rows);
        if (state.rows > 0) {
            const std::string text =
                fmt::format("window too small: needs {}x{}, q quits", MIN_COLUMNS, MIN_ROWS);
            screen.lines[0] = {{FitColumns(text, state.columns), Style::Alarm}};
        }
        return screen;
    }
    const std::vector<Line> log = LogLines(
        state.log, state.columns, std::clamp<size_t>(state.rows / LOG_SHARE, 1, MAX_LOG_ROWS));
    Section notes;
    if (model.report != nullptr && !state.help) {
        notes = NoteSection(*model.report, false, state.columns);
    }
    const size_t note_rows = std::min(notes.rows.size(), state.rows / NOTE_SHARE);
    const bool all_notes = note_rows == notes.rows.size();
    const size_t notes_shown = all_notes ? note_rows : note_rows - 1;
    const size_t body_rows = state.rows - 2 - note_rows - log.size();

    screen.lines.push_back(Header(model, state));
    for (size_t i = 0; i < notes_shown; ++i) {
        screen.lines.push_back(notes.rows[i].line);
    }
    if (!all_notes) {
        screen.lines.push_back(MoreNotes(notes, notes_shown));
    }
    const Body body = state.help                ? HelpBody()
                      : model.report == nullptr ? Body{{{{"measuring the first interval ..."}}}}
                                                : ReportBody(model, state, body_rows, notes_shown);
    AddBody(body, state.scroll, body_rows, state.columns, screen);
    screen.lines.resize(1 + note_rows + body_rows);
    screen.lines.insert(screen.lines.end(), log.begin(), log.end());
    screen.lines.push_back(Footer(state));
    for (Line& line : screen.lines) {
        line = Cut(line, state.columns);
    }
    return screen;
}

}  // namespace corvane::program
