// Who a process is, by /proc/PID/stat: a number alone may be used again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace corvane {

struct ProcessStat {
    char state = '?';         ///< field 3
    uint32_t parent = 0;      ///< field 4, a pid
    uint64_t start_time = 0;  ///< field 22, clock ticks after boot

    /// Whether it has ended and only waits for its parent to notice.
    bool HasEnded() const { return state == 'Z' || state == 'X'; }
};

/// The fields of the text of a stat file, counted from the last ')': a command may hold anything.
std::optional<ProcessStat> ParseProcessStat(const std::string& stat_text);

/// The process with this number; empty when there is none, or it is hidden.
std::optional<ProcessStat> ReadProcessStat(uint32_t pid);

/// A process number, decimal, from 1 on. Empty for anything else.
std::optional<uint32_t> PidFromText(const std::string& text);

/// "/proc/PID/NAME".
std::string ProcessFile(uint32_t pid, const char* name);

/// Whether /proc shows a process.
enum class Presence {
    None,    ///< no process has the number
    Hidden,  ///< one has it, but the mount option hidepid hides it
    Shown,
};
Presence ProcessPresence(uint32_t pid);

}  // namespace corvane
