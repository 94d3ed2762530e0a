#include "live_notes.h"

#include <algorithm>
#include <string>
#include <vector>

#include "terminal_text.h"

namespace corvane::program {

namespace {

constexpr size_t NAME_COLUMNS = 32;  // of a name at most, which leaves room for the reason

/// A family that is not fresh, or two that fare alike.
struct Trouble {
    std::string subject;
    std::string name;  ///< that a note about it holds
    FamilyStatus status;
    bool expected = false;  ///< a directory without a disk or without space
};

void Add(const std::string& subject, const std::string& name, const FamilyStatus& status,
         bool directory, std::vector<Trouble>& troubles) {
    if (status.state != FigureState::Fresh) {
        const bool expected = directory && status.state == FigureState::Absent;
        troubles.push_back({subject, name, status, expected});
    }
}

std::vector<Trouble> Troubles(const Report& report) {
    std::vector<Trouble> troubles;
    const auto add_two = [&](const char* kind, const std::string& name, const char* first_kind,
                             const FamilyStatus& first, const char* second_kind,
                             const FamilyStatus& second, bool directory) {
        const std::string subject = kind + Shortened(name, std::min(ColumnsOf(name), NAME_COLUMNS));
        if (first.state == second.state && first.reason == second.reason) {
            Add(subject, name, first, directory, troubles);
            return;
        }
        Add(subject + first_kind, name, first, directory, troubles);
        Add(subject + second_kind, name, second, directory, troubles);
    };
    Add("CPU", "", report.cpu.status, false, troubles);
    Add("memory", "", report.memory.status, false, troubles);
    Add("network", "", report.network.status, false, troubles);
    for (const ProcessFigures& row : report.processes) {
        add_two("process ", row.target, " CPU", row.cpu, " memory", row.memory, false);
    }
    for (const DirectoryFigures& row : report.directories) {
        add_two("directory ", row.directory, " disk", row.io, " space", row.space, true);
    }
    return troubles;
}

/// Whether a note says what a trouble's status does.
bool Tells(const std::string& note, const Trouble& trouble) {
    return !trouble.status.reason.empty() && note.find(trouble.name) != std::string::npos &&
           note.find(trouble.status.reason) != std::string::npos;
}

std::string Text(const Trouble& trouble) {
    const FamilyStatus& status = trouble.status;
    const char* word = status.reason.empty() ? " absent" : "";
    if (status.state != FigureState::Absent) {
        word = status.state == FigureState::Stale ? " stale" : " not measured";
    }
    return trouble.subject + word + (status.reason.empty() ? "" : ": " + status.reason);
}

void AddRows(const std::string& text, const char* mark, Style style, size_t columns,
             Section& section) {
    std::string start = mark;
    size_t items = 1;
    for (const std::string& line : Wrapped(text, columns - start.size())) {
        section.rows.push_back({{{start + line, style}}, items});
        start.assign(start.size(), ' ');
        items = 0;
    }
}

}  // namespace

Section NoteSection(const Report& report, bool all, size_t columns) {
    const std::vector<Trouble> troubles = Troubles(report);
    Section section = {{"note", "notes"}, {{FitColumns("Notes", columns), Style::Heading}}, {}};
    std::vector<std::string> expected;
    for (const std::string& note : report.notes) {
        const bool no_news = std::any_of(
            troubles.begin(), troubles.end(),
            [&](const Trouble& trouble) { return trouble.expected && Tells(note, trouble); });
        if (no_news) {
            expected.push_back(note);
        } else {
            AddRows(note, "! ", Style::Note, columns, section);
        }
    }
    const auto add_troubles = [&](FigureState state, const char* mark, Style style) {
        for (const Trouble& trouble : troubles) {
            const bool told =
                std::any_of(report.notes.begin(), report.notes.end(),
                            [&](const std::string& note) { return Tells(note, trouble); });
            if (trouble.status.state != state || told) {
                continue;
            }
            if (trouble.expected) {
                expected.push_back(Text(trouble));
            } else {
                AddRows(Text(trouble), mark, style, columns, section);
            }
        }
    };
    add_troubles(FigureState::Failed, "! ", Style::Note);
    add_troubles(FigureState::Stale, "* ", Style::Plain);
    add_troubles(FigureState::Absent, "- ", Style::Plain);
    if (all) {
        for (const std::string& text : expected) {
            AddRows(text, "- ", Style::Plain, columns, section);
        }
    }
    return section;
}

}  // namespace corvane::program
