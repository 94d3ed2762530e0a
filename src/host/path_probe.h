// Asking a path what may block for ever, on a thread of its own: a file system of a network or of a
// program that has stopped answering holds up the probe alone.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "schedule.h"
#include "text_file.h"

namespace corvane {

/// What a path had to say.
struct PathAnswer {
    PathTrouble trouble;  ///< why it said nothing; without text it did
    uint64_t device = 0;  ///< st_dev of the file system
    uint64_t total_bytes = 0;
    uint64_t used_bytes = 0;       ///< as df counts it
    uint64_t available_bytes = 0;  ///< to an ordinary user
    std::string text;              ///< of a file
};

/// stat(2) and statvfs(3): device and space of the file system that holds a path.
PathAnswer AskSpace(const std::string& path);

/// The beginning of a file, up to 4 KiB.
PathAnswer AskText(const std::string& path);

/// A reason without how long it has held, for a note that stays the same meanwhile.
std::string WithoutDuration(const std::string& reason);

/// One path and one question. The thread starts with the first question and waits for the next.
class PathProbe {
public:
    using Question = PathAnswer (*)(const std::string& path);

    PathProbe(Question question, const std::string& path);
    PathProbe(const PathProbe&) = delete;
    PathProbe& operator=(const PathProbe&) = delete;
    PathProbe(PathProbe&&) noexcept = default;
    PathProbe& operator=(PathProbe&&) = delete;
    /// Leaves a thread that hangs behind; it owns what it touches and ends when it is answered.
    ~PathProbe();

    /// Asks, unless the last question has not been answered, or its answer not been taken.
    void Ask(Clock::time_point now);

    /// The answer, once. Waits for one until `deadline`, but for a question that was already open
    /// at the last Ask(): that path has been waited for.
    std::optional<PathAnswer> Take(std::chrono::steady_clock::time_point deadline);

    /// In words, while there is no answer: since when.
    std::string Silence(Clock::time_point now) const;

private:
    struct State;  // shared with the thread

    std::shared_ptr<State> m_state;
    Clock::time_point m_asked_at;
    bool m_waited_for = false;
};

}  // namespace corvane
