#include "stop_signal.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

namespace corvane::program {

StopSignal::StopSignal() {
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
    m_signal_fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (m_signal_fd < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
}

StopSignal::~StopSignal() {
    close(m_signal_fd);
}

Wake StopSignal::Wait(Clock::time_point deadline, bool with_input) {
    pollfd descriptors[] = {{m_signal_fd, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    for (;;) {
        const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec timeout = {seconds.count(), (left - seconds).count()};
        const int ready = ppoll(descriptors, with_input ? 2 : 1, &timeout, nullptr);
        if (ready == 0) {
            return Wake::Deadline;
        }
        if (ready < 0) {
            if (errno == EINTR && with_input) {
                return Wake::Input;
            }
            continue;
        }
        const bool terminal_gone = (descriptors[1].revents & ~POLLIN) != 0;
        return descriptors[0].revents != 0 || terminal_gone ? Wake::Stop : Wake::Input;
    }
}

}  // namespace corvane::program
