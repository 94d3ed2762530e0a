#include "stop_signal.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <utility>

namespace corvane::program {

namespace {

// Longer than a service waits for its thread, and less than the second that a user is promised.
constexpr std::chrono::milliseconds TIME_TO_END{900};

}  // namespace

void OnStopSignal(std::function<void()> on_stop, void (*at_late_end)()) {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (signal != SIGHUP || action.sa_handler != SIG_IGN) {  // nohup asks to outlive it
            sigaddset(&signals, signal);
        }
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals, on_stop = std::move(on_stop), at_late_end] {
        int signal = 0;
        sigwait(&signals, &signal);
        on_stop();
        std::this_thread::sleep_for(TIME_TO_END);
        at_late_end();
        _exit(EXIT_SUCCESS);
    }).detach();
}

}  // namespace corvane::program
