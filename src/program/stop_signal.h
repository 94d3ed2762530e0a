// The signals that ask the program to end.
#pragma once

#include <functional>

namespace corvane::program {

/// From now on SIGINT, SIGTERM, SIGHUP (not under nohup) and SIGQUIT call `on_stop` once, on a
/// thread of its own. Whatever holds up the other threads then, a file, a terminal or an exit
/// handler, the process ends within a second, with status 0.
///
/// Call it once, before any other thread is started: threads inherit the blocked signals. What
/// `on_stop` uses must live as long as the process. When the process has to be ended, `at_late_end`
/// is called last.
/// @throws std::system_error the thread cannot be started
void OnStopSignal(std::function<void()> on_stop, void (*at_late_end)());

}  // namespace corvane::program
