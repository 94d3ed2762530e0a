#include "process_finder.h"

#include <cerrno>
#include <sstream>

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

/// The living process of a number, which `name` stands for in words.
Sighting Look(uint32_t pid, const std::string& name) {
    const std::string path = ProcessFile(pid, "stat");
    PathTrouble trouble;
    const auto stat = ParseProcessStat(ReadWholeFile(path, &trouble));
    if (stat && stat->HasEnded()) {
        return NotRunning(name + " has ended");
    }
    if (stat) {
        return {pid, stat->start_time, {FigureState::Fresh, ""}};
    }
    switch (ProcessPresence(pid)) {
        case Presence::None:
            return NotRunning(name + " does not exist");
        case Presence::Hidden:
            return Unknown(name + " is hidden (hidepid)");
        case Presence::Shown:
            break;
    }
    return Unknown(trouble.text.empty() ? "cannot parse " + path : trouble.text);
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
    Sighting found = Look(PidFromText(m_target.text).value_or(0), "it");
    const bool known = m_known.pid != 0;
    const bool other = found.pid != 0 && found.start_time != m_known.start_time;
    if (known && (other || found.missing.state == FigureState::Absent)) {
        found = NotRunning("it has ended");
    }
    if (found.missing.state == FigureState::Absent) {
        m_gone = found;
    }
    return found;
}

Sighting ProcessFinder::FindByPidFile(Clock::time_point now,
                                      std::chrono::steady_clock::time_point deadline) {
    const auto answer = m_pid_file->Take(deadline);
    if (!answer) {
        return Unknown("its pid file " + m_pid_file->Silence(now));
    }
    if (answer->trouble.error_number == ENOENT) {
        return NotRunning("there is no such pid file");
    }
    if (!answer->trouble.text.empty()) {
        return Unknown(answer->trouble.text);
    }
    std::string number;
    std::istringstream(answer->text) >> number;
    const auto pid = PidFromText(number);
    return pid ? Look(*pid, "process " + number + ", which the pid file names,")
               : Unknown("its pid file holds no process number");
}

Sighting ProcessFinder::FindByUnit() const {
    const std::string group = FindUnitGroup(m_target.text);
    if (group.empty() && NamesIn("/sys/fs/cgroup").empty()) {
        return Unknown("there are no control groups under /sys/fs/cgroup");
    }
    if (group.empty()) {
        return NotRunning("there is no control group of this unit");
    }
    const uint32_t pid = MainProcess(ProcessesOfGroup(group));
    return pid == 0 ? NotRunning("there is no process in " + group)
                    : Look(pid, "process " + std::to_string(pid) + " of the unit");
}

bool ProcessFinder::StillLives() const {
    const auto stat = m_known.pid == 0 ? std::nullopt : ReadProcessStat(m_known.pid);
    return stat && !stat->HasEnded() && stat->start_time == m_known.start_time;
}

}  // namespace corvane
