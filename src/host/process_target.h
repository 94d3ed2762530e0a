// What a service watches a process by: a number, a pid file or a systemd unit.
#pragma once

#include <cstdint>
#include <string>

namespace corvane {

/// A pid file and a unit are followed: when the process ends and another takes its place, that one
/// is watched, with baselines and peaks of its own. A number is not: when its process has ended, it
/// stays gone, also when the kernel gives the number to another process.
struct ProcessTarget {
    enum class Kind {
        Pid,      ///< `text` is a decimal process number, from 1 on
        PidFile,  ///< `text` is the path of a file that begins with one
        Unit,     ///< `text` names a systemd unit; without a suffix, a service
    };

    Kind kind = Kind::Pid;
    std::string text;  ///< as it shall stand in reports; any bytes
};

inline bool operator==(const ProcessTarget& left, const ProcessTarget& right) {
    return left.kind == right.kind && left.text == right.text;
}

}  // namespace corvane
