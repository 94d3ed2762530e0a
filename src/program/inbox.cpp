#include "inbox.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

namespace corvane::program {

namespace {

constexpr size_t MAX_WAITING = 60;
constexpr std::chrono::milliseconds BETWEEN_LOOKS{100};

}  // namespace

Inbox::Inbox() : m_event_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_event_fd < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    sigset_t size_change;
    sigemptyset(&size_change);
    sigaddset(&size_change, SIGWINCH);
    pthread_sigmask(SIG_BLOCK, &size_change, nullptr);
}

Inbox::~Inbox() {
    close(m_event_fd);
}

void Inbox::Put(std::shared_ptr<const Report> report) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_reports.push_back(std::move(report));
        if (m_reports.size() > MAX_WAITING) {
            m_reports.pop_front();
            ++m_dropped;
        }
    }
    Notify();
}

void Inbox::Stop() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopped = true;
    }
    Notify();
}

bool Inbox::IsStopped() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_stopped;
}

std::shared_ptr<const Report> Inbox::Take() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_reports.empty()) {
        return nullptr;
    }
    auto report = std::move(m_reports.front());
    m_reports.pop_front();
    return report;
}

uint64_t Inbox::TakeDropped() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_dropped, 0);
}

Inbox::Wake Inbox::Wait(bool with_input) {
    pollfd descriptors[] = {{m_event_fd, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    sigdelset(&blocked, SIGWINCH);
    const timespec second = {1, 0};
    const int ready =
        ppoll(descriptors, with_input ? 2 : 1, with_input ? &second : nullptr, &blocked);
    if (ready == 0) {
        return Wake::Tick;
    }
    if (ready < 0) {
        if (errno != EINTR) {
            // A limit on open files below the number of descriptors makes it fail at once.
            std::this_thread::sleep_for(BETWEEN_LOOKS);
        }
        return with_input ? Wake::Input : Wake::Message;
    }
    if ((descriptors[1].revents & ~POLLIN) != 0) {
        return Wake::TerminalGone;
    }
    if (descriptors[1].revents != 0) {
        return Wake::Input;
    }
    uint64_t notifications = 0;
    [[maybe_unused]] const ssize_t taken = read(m_event_fd, &notifications, sizeof(notifications));
    return Wake::Message;
}

void Inbox::Notify() const {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_event_fd, &one, sizeof(one));
}

}  // namespace corvane::program
