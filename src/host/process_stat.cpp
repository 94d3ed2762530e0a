#include "process_stat.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <sstream>

#include "text_file.h"

namespace corvane {

std::optional<ProcessStat> ParseProcessStat(const std::string& stat_text) {
    constexpr int FIELDS_BEFORE_START_TIME = 17;  // 5 to 21
    const size_t name_end = stat_text.rfind(')');
    if (name_end == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields(stat_text.substr(name_end + 1));
    ProcessStat stat;
    fields >> stat.state >> stat.parent;
    std::string skipped;
    for (int i = 0; i < FIELDS_BEFORE_START_TIME; ++i) {
        fields >> skipped;
    }
    fields >> stat.start_time;
    return fields ? std::optional(stat) : std::nullopt;
}

std::optional<ProcessStat> ReadProcessStat(uint32_t pid) {
    return ParseProcessStat(ReadWholeFile(ProcessFile(pid, "stat")));
}

std::optional<uint32_t> PidFromText(const std::string& text) {
    uint32_t pid = 0;
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, pid);
    return error == std::errc() && last == end && pid > 0 ? std::optional(pid) : std::nullopt;
}

std::string ProcessFile(uint32_t pid, const char* name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

Presence ProcessPresence(uint32_t pid) {
    if (access(ProcessFile(pid, "").c_str(), F_OK) == 0) {
        return Presence::Shown;
    }
    const auto number = static_cast<pid_t>(pid);  // a negative one would be a group's
    const bool exists = number > 0 && (kill(number, 0) == 0 || errno == EPERM);
    return exists ? Presence::Hidden : Presence::None;
}

}  // namespace corvane
