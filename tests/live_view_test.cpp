// The live view's lines for made-up reports, at every size.
#include <gtest/gtest.h>
#include <spdlog/fmt/fmt.h>

#include "live_layout.h"
#include "scaled_text.h"

namespace corvane::program {

const FamilyStatus FRESH = {FigureState::Fresh, ""};
const std::string WIDE = "/\u4E16\u754C" + std::string(99, 'x') + "e\u0301\u202E\033[2J\n/";

/// Figures of many, with names that other processes chose.
LiveModel Crowd() {
    Report report;
    report.cpu = {FRESH, 256, 12800, 6400, std::vector<CoreFigures>(256, {"cpu255", 50})};
    report.memory = {{FigureState::Stale, "cannot open /proc/meminfo"}, 1024, 512};
    report.network = {FRESH, {1500, "eth0"}, {0, ""}, {}};
    report.notes = {"hidden by hidepid"};
    for (uint32_t i = 10; i < 50; ++i) {
        const std::string name = std::to_string(i);
        report.network.interfaces.push_back({"eth" + name, i, i, i, i});
        report.directories.push_back({WIDE + name, "sda", FRESH, 50, 7, FRESH, 1000, i, 900});
        report.processes.push_back({name, i, WIDE, true, FRESH, 250, {}, FRESH, 7000 + i, 1});
    }
    report.directories.push_back({"/tmp", "", {FigureState::Absent, "no disk"}, 0, 0, FRESH});
    report.processes[0].cpu = {FigureState::Failed, "cannot read stat"};
    LiveModel model = {std::make_shared<const Report>(report), {}};
    model.histories.Add(report);
    return model;
}

std::string TextOf(const Line& line) {
    std::string text;
    for (const Span& span : line) {
        text += span.text;
    }
    return text;
}

/// The screen's text, after a look at whether it fits.
std::string Text(const LiveState& state) {
    std::string text;
    const Screen screen = LayOut(Crowd(), state);
    EXPECT_EQ(screen.lines.size(), state.rows);
    for (const Line& line : screen.lines) {
        EXPECT_LE(ColumnsOf(line), state.columns) << state.columns << "x" << state.rows;
        text += TextOf(line) + "\n";
    }
    EXPECT_EQ(text.find('\033'), std::string::npos);
    return text;
}

TEST(LiveView, FitsEverySize) {
    for (const size_t columns : {1U, 39U, 40U, 41U, 79U, 80U, 120U, 300U}) {
        for (const size_t rows : {1U, 11U, 12U, 13U, 24U, 50U, 100U}) {
            Text({columns, rows, rows * 3, true, false, true, {}, "host", {"a", WIDE + WIDE}});
            Text({columns, rows, 0, false, rows % 2 == 0, false, {}, "host", {}});
        }
    }
}

TEST(LiveView, CountsWhatDoesNotFitAndReachesIt) {
    LiveState state = {80, 24, 0, true, false, false, std::chrono::seconds(61)};
    std::string all = Text(state);
    std::vector<std::string> expected = {"  paused figures are 61 s old\n",
                                         "40 interfaces, 1 graph, 1 note more below",
                                         "! hidden by hidepid",
                                         "! process 10 CPU not measured: cannot read stat",
                                         "Memory 512MiB of 1.00GiB, 50 %*",
                                         "- directory /tmp disk: no disk"};
    for (const size_t last = LayOut(Crowd(), state).last_scroll; state.scroll < last;) {
        state.scroll = std::min(last, state.scroll + 10);
        all += Text(state);
    }
    for (int i = 10; i < 50; ++i) {
        expected.push_back(fmt::format("eth{} ", i));
        expected.push_back(fmt::format("/{}  sda        50%      7 ", i));
        expected.push_back(fmt::format(" {}  {}", i, i == 10 ? "   - " : "250% "));
    }
    for (const std::string& text : expected) {
        EXPECT_NE(all.find(text), std::string::npos) << text;
    }
}

TEST(LiveView, TellsNothingFromNotMeasured) {
    const std::string past = TextOf(Plot({-1, 0, 1, 50, 100}, 100, true, 1, 6).front());
    EXPECT_EQ(past, " \u00B7_\u2581\u2584\u2588");
    EXPECT_EQ(Rendered(past + "\u4E16e\u0301", Charset::Ascii), " ?_.:#??e");
    const LiveModel model = Crowd();
    const std::vector<Graph> graphs = Graphs(*model.report, model.histories);
    ASSERT_EQ(graphs.size(), 5U);  // one for all directories of a disk, none for /tmp
    EXPECT_EQ(graphs[4].title.find("Disk sda 50 % " + WIDE + "10, " + WIDE + "11"), 0U);
    EXPECT_EQ(Scaled(999.6, Prefix::Decimal) + Scaled(1.8e19, Prefix::Binary), "1.00k15.6E");
}

}  // namespace corvane::program
