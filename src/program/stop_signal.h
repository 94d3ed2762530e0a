// Waiting until a time, a signal that asks the program to end, or input.
#pragma once

#include "schedule.h"

namespace corvane::program {

enum class Wake { Deadline, Stop, Input };

/// From construction on, SIGINT, SIGTERM, SIGHUP and SIGQUIT no longer end the program; Wait()
/// reports them (SIGHUP not under nohup). Construct it before any thread is started: threads
/// inherit the blocked signals.
class StopSignal {
public:
    StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;
    ~StopSignal();

    /// Waits until the deadline, a stop signal or, with `with_input`, input on the terminal (a
    /// change of its size counts as input, the loss of the terminal as a stop signal).
    Wake Wait(Clock::time_point deadline, bool with_input);

private:
    int m_signal_fd = -1;
};

}  // namespace corvane::program
