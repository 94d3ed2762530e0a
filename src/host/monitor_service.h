// The monitor as a service: a thread that measures and hands reports out.
//
//     corvane::MonitorService service;          // watches this process and the directory it runs
//     on
//     ...
//     if (const auto report = service.Latest()) {
//         use(report->cpu.peak_percent);        // shared, immutable, from any thread
//     }
//
// There is one service in a process: services would share the one monitor of the process, which
// takes no locks. For the same reason nobody else may call CMonitorPhysicalUtil::GetInstance()'s
// operations while a service lives.
#pragma once

#include <memory>

#include "report.h"
#include "service_settings.h"

namespace corvane {

class MonitorService {
public:
    /// Starts the thread; returns before the first cycle.
    /// @throws std::invalid_argument settings that make no sense; the text says which
    /// @throws std::runtime_error a service lives in this process, or did when it was forked, or
    ///         left a thread behind that still hangs
    /// @throws std::system_error the thread cannot be started
    explicit MonitorService(ServiceSettings settings = {});
    MonitorService(const MonitorService&) = delete;
    MonitorService& operator=(const MonitorService&) = delete;

    /// Stops at once: waits for a cycle to end, not for an interval, and for the callback to
    /// return. May be called by the callback itself.
    ///
    /// A watched path that does not answer holds up nothing: its probe's thread is left behind,
    /// touches what it owns alone, and ends when the path answers. Should the service's own thread
    /// hang, because a file of the kernel does, it is left behind after 0.8 s; a further service is
    /// refused as long as it hangs, and the log category must then live as long as the process.
    ~MonitorService();

    /// The newest report; null before the first. Never waits for a measurement: while the thread
    /// hangs, the report's `measured_at` shows its age. Safe to call from any thread.
    ///
    /// After fork() the child has no thread: there this goes on to give the last report before the
    /// fork, and destruction stops nothing. Start a service after the last fork().
    std::shared_ptr<const Report> Latest() const;

private:
    struct State;  // shared with the thread, which may outlive the service
    struct AtExit;
    std::shared_ptr<State> m_state;
};

}  // namespace corvane
