// What other threads hand to the main thread, and its one place to wait.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "report.h"

namespace corvane::program {

class Inbox {
public:
    enum class Wake {
        Message,       ///< a report or the request to stop may be there
        Input,         ///< something was typed, or the terminal has another size
        TerminalGone,  ///< nothing will be typed any more
        Tick,          ///< a second has passed that a terminal was waited for
    };

    /// Construct it before any thread is started: a change of the terminal's size (SIGWINCH) is
    /// then seen while Wait() waits, and at no other time.
    /// @throws std::system_error no descriptor is left
    Inbox();
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;
    ~Inbox();

    /// Adds a report; any thread. While none is taken, the oldest make place for the latest.
    void Put(std::shared_ptr<const Report> report);

    /// Asks the main thread to end; any thread.
    void Stop();

    bool IsStopped() const;

    /// The oldest report that waits, or null.
    std::shared_ptr<const Report> Take();

    /// How many reports had to make place since the last call.
    uint64_t TakeDropped();

    /// Waits for a message or, with `with_input`, for the terminal on standard input.
    Wake Wait(bool with_input);

private:
    void Notify() const;

    mutable std::mutex m_mutex;
    std::deque<std::shared_ptr<const Report>> m_reports;
    uint64_t m_dropped = 0;
    bool m_stopped = false;
    int m_event_fd = -1;
};

}  // namespace corvane::program
