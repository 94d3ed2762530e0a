#include "monitor_service.h"

#include <pthread.h>
#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include "monitor_loop.h"
#include "monitor_physical_util_log.h"

namespace corvane {

namespace {

constexpr std::chrono::milliseconds PATIENCE{800};  // for a cycle to end

// Guards what the service's thread shares with others; never held while something is measured. One
// for all, so that it can be held over a fork: a child's readers find it free.
std::mutex the_mutex;
pid_t the_owner = 0;  // the process in which a service uses the monitor; 0: none does

void HoldOverForks() {
    static const int status = pthread_atfork([] { the_mutex.lock(); }, [] { the_mutex.unlock(); },
                                             [] { the_mutex.unlock(); });
    if (status != 0) {
        throw std::system_error(status, std::generic_category(), "cannot prepare for forks");
    }
}

/// The right to use the monitor, of which a process has one.
void TakeMonitor() {
    const std::lock_guard<std::mutex> lock(the_mutex);
    if (the_owner == getpid()) {
        throw std::runtime_error(
            "a monitoring service lives in this process, or left a thread behind that hangs");
    }
    if (the_owner != 0) {
        throw std::runtime_error(
            "a monitoring service lived when this process was forked; start one after the last "
            "fork");
    }
    the_owner = getpid();
}

void ReturnMonitor() {
    const std::lock_guard<std::mutex> lock(the_mutex);
    the_owner = 0;
}

/// Keeps signals from the threads started while it lives: they are for the server's own.
class WithoutSignals {
public:
    WithoutSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    WithoutSignals(const WithoutSignals&) = delete;
    WithoutSignals& operator=(const WithoutSignals&) = delete;
    ~WithoutSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before;
};

}  // namespace

struct MonitorService::State {
    enum class Stage { Measuring, Waiting, Reporting, Ended };

    explicit State(ServiceSettings complete)
        : settings(std::move(complete)),
          loop(*CorvaneCommon::CMonitorPhysicalUtil::GetInstance(), settings, Clock::now()) {}

    bool WaitUntil(Clock::time_point due);
    std::shared_ptr<const Report> Measure();
    bool Publish(const std::shared_ptr<const Report>& report);
    void HandOver(const std::shared_ptr<const Report>& report) const;
    void Complain(const char* what, const char* why) const;
    void Run();
    void Stop(bool callback_may_take_long);

    const ServiceSettings settings;
    MonitorLoop loop;  // the thread's
    const pid_t process = getpid();
    std::thread thread;

    // Guarded by the_mutex.
    std::condition_variable changed;
    Stage stage = Stage::Measuring;
    bool stop = false;
    std::shared_ptr<const Report> latest;
};

/// exit() leaves a service on somebody's stack alive: its thread must end before the monitor, which
/// it uses, is destroyed.
struct MonitorService::AtExit {
    ~AtExit() {
        const auto state = service.lock();
        if (state != nullptr && state->process == getpid()) {
            state->Stop(false);
        }
    }

    std::weak_ptr<State> service;
};

/// False when the service stops.
bool MonitorService::State::WaitUntil(Clock::time_point due) {
    std::unique_lock<std::mutex> lock(the_mutex);
    stage = Stage::Waiting;
    changed.notify_all();
    const bool stopped = changed.wait_until(lock, due, [this] { return stop; });
    stage = Stage::Measuring;
    return !stopped;
}

/// What does not fit into memory costs its cycle alone: the loop has moved its schedules on.
std::shared_ptr<const Report> MonitorService::State::Measure() {
    try {
        if (auto report = loop.RunDue(Clock::now())) {
            return std::make_shared<const Report>(std::move(*report));
        }
    } catch (const std::exception& error) {
        Complain("a cycle failed", error.what());
    }
    return nullptr;
}

/// False when the service stops.
bool MonitorService::State::Publish(const std::shared_ptr<const Report>& report) {
    std::shared_ptr<const Report> before = report;  // is freed without the lock
    const std::lock_guard<std::mutex> lock(the_mutex);
    latest.swap(before);
    stage = Stage::Reporting;
    return !stop;
}

void MonitorService::State::HandOver(const std::shared_ptr<const Report>& report) const {
    if (!settings.on_report) {
        return;
    }
    try {
        settings.on_report(report);
    } catch (const std::exception& error) {
        Complain("the report's callback threw", error.what());
    } catch (...) {
        Complain("the report's callback threw", "no exception of the standard library's");
    }
}

/// In a record, if there is memory for one.
void MonitorService::State::Complain(const char* what, const char* why) const {
    try {
        MONITOR_LOG(settings.log, LOG_PRIORITY_ERROR, "%s: %s.", what, why);
    } catch (const std::exception&) {
        return;  // nothing more can be done
    }
}

/// The thread.
void MonitorService::State::Run() {
    pthread_setname_np(pthread_self(), "corvane-monitor");
    while (WaitUntil(loop.NextDue())) {
        const auto report = Measure();
        if (report != nullptr && Publish(report)) {
            HandOver(report);
        }
    }
    const std::lock_guard<std::mutex> lock(the_mutex);
    the_owner = 0;
    stage = Stage::Ended;
    changed.notify_all();
}

/// Ends the thread. It is given time for a cycle, and where the callback may take long all the time
/// that it takes; then it is left behind.
void MonitorService::State::Stop(bool callback_may_take_long) {
    std::unique_lock<std::mutex> lock(the_mutex);
    stop = true;
    changed.notify_all();
    std::thread ending = std::move(thread);
    if (ending.get_id() == std::this_thread::get_id()) {
        ending.detach();
    }
    if (!ending.joinable()) {
        return;
    }
    const auto give_up = std::chrono::steady_clock::now() + PATIENCE;
    while (stage != Stage::Ended) {
        if (stage == Stage::Reporting && callback_may_take_long) {
            changed.wait(lock);
        } else if (changed.wait_until(lock, give_up) == std::cv_status::timeout) {
            break;
        }
    }
    const bool ended = stage == Stage::Ended;
    lock.unlock();
    ended ? ending.join() : ending.detach();
}

MonitorService::MonitorService(ServiceSettings settings) {
    ServiceSettings complete = CompleteSettings(std::move(settings));
    HoldOverForks();
    TakeMonitor();
    try {
        m_state = std::make_shared<State>(std::move(complete));
        static AtExit at_exit;  // after the monitor, so that it is destroyed before
        at_exit.service = m_state;
        const WithoutSignals without_signals;
        m_state->thread = std::thread([state = m_state] { state->Run(); });
    } catch (const std::system_error& error) {
        ReturnMonitor();
        throw std::system_error(error.code(), "cannot start the monitoring service's thread");
    } catch (...) {
        ReturnMonitor();
        throw;
    }
}

MonitorService::~MonitorService() {
    if (m_state->process == getpid()) {
        m_state->Stop(true);
    } else {
        // A child has no thread to stop, and what that was using at the fork cannot be freed: kept
        // for as long as the process lives.
        alignas(std::shared_ptr<State>) static unsigned char kept[sizeof(std::shared_ptr<State>)];
        new (kept) std::shared_ptr<State>(m_state);
    }
}

std::shared_ptr<const Report> MonitorService::Latest() const {
    const std::lock_guard<std::mutex> lock(the_mutex);
    return m_state->latest;
}

}  // namespace corvane
