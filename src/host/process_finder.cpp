#include "process_finder.h"

#include <cerrno>

#include "text_file.h"
#include "unit_processes.h"

namespace corvane {

namespace {

Sighting NotRunning(const std::string& why) {
    return {0, 0, {FigureState::Absent, "not running: " + why}};
}

Sighting Unknown(const std::string& why) {
    return {0, 0, {FigureState::Failed, why}};
}

/// The living process of a number. `from` says where the number is from.
Sighting Look(uint32_t pid, const std::string& from) {
    PathTrouble trouble;
    const std::string text = ReadWholeFile(ProcessFile(pid, "stat"), &trouble);
    const auto stat = ParseProcessStat(text);
    if (stat && stat->HasEnded()) {
        return NotRunning("process " + std::to_string(pid) + from + " has ended");
    }
    if (stat) {
        return {pid, stat->start_time, {FigureState::Fresh, ""}};
    }
    switch (ProcessPresence(pid)) {
        case Presence::None:
            return NotRunning("process " + std::to_string(pid) + from + " does not exist");
        case Presence::Hidden:
            return Unknown("process " + std::to_string(pid) + from + " is hidden (hidepid)");
        case Presence::Shown:
            break;
    }
    return Unknown(trouble.text.empty() ? "cannot parse " + ProcessFile(pid, "stat")
                                        : trouble.text);
}

}  // namespace

ProcessFinder::ProcessFinder(const ProcessTarget& target) : m_target(target) {
    if (target.kind == ProcessTarget::Kind::PidFile) {
        m_pid_file.emplace(AskText, target.text);
    }
}

void ProcessFinder::Ask(Clock::time_point now) {
    if (m_pid_file) {
        m_pid_file->Ask(now);
    }
}

Sighting ProcessFinder::Find(Clock::time_point now,
                             std::chrono::steady_clock::time_point deadline) {
    Sighting found;
    switch (m_target.kind) {
        case ProcessTarget::Kind::Pid:
            found = FindByNumber();
            break;
        case ProcessTarget::Kind::PidFile:
            found = FindByPidFile(now, deadline);
            break;
        case ProcessTarget::Kind::Unit:
            found = StillLives() ? m_known : FindByUnit();
            break;
    }
    if (found.pid == 0 && m_target.kind != ProcessTarget::Kind::Pid && StillLives()) {
        return m_known;
    }
    if (found.pid != 0) {
        m_known = found;
    }
    return found;
}

/// Once there is none, another process that is given the number is not the one asked for.
Sighting ProcessFinder::FindByNumber() {
    if (m_gone) {
        return *m_gone;
    }
    Sighting found = Look(PidFromText(m_target.text).value_or(0), "");
    const bool known = m_known.pid != 0;
    const bool other = found.pid != 0 && found.start_time != m_known.start_time;
    if (known && (other || found.missing.state == FigureState::Absent)) {
        found = NotRunning("process " + m_target.text + " has ended");
    }
    if (found.missing.state == FigureState::Absent) {
        m_gone = found;
    }
    return found;
}

Sighting ProcessFinder::FindByPidFile(Clock::time_point now,
                                      std::chrono::steady_clock::time_point deadline) {
    const std::string name = "pid file " + m_target.text;
    const auto answer = m_pid_file->Take(deadline);
    if (!answer) {
        return Unknown(name + " " + m_pid_file->Silence(now));
    }
    if (answer->trouble.error_number == ENOENT) {
        return NotRunning(name + " does not exist");
    }
    if (!answer->trouble.text.empty()) {
        return Unknown(answer->trouble.text);
    }
    const size_t start = answer->text.find_first_not_of(" \t\n");
    const size_t end = answer->text.find_first_not_of("0123456789", start);
    const auto pid =
        PidFromText(start == std::string::npos ? "" : answer->text.substr(start, end - start));
    return pid ? Look(*pid, " of " + name) : Unknown(name + " holds no process number");
}

Sighting ProcessFinder::FindByUnit() const {
    const std::string group = FindUnitGroup(m_target.text);
    if (group.empty()) {
        return NotRunning("no control group of this unit");
    }
    const uint32_t pid = MainProcess(ProcessesOfGroup(group));
    return pid == 0 ? NotRunning("no process in " + group) : Look(pid, " of the unit");
}

bool ProcessFinder::StillLives() const {
    const auto stat = m_known.pid == 0 ? std::nullopt : ReadProcessStat(m_known.pid);
    return stat && !stat->HasEnded() && stat->start_time == m_known.start_time;
}

}  // namespace corvane
