#include "path_probe.h"

#include <pthread.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace corvane {

namespace {

constexpr size_t SHORT_TEXT = 4096;
constexpr const char* SINCE = " since ";

}  // namespace

PathAnswer AskSpace(const std::string& path) {
    PathAnswer answer;
    struct stat status = {};
    struct statvfs space = {};
    const bool reached = stat(path.c_str(), &status) == 0;
    if (!reached || statvfs(path.c_str(), &space) != 0) {
        answer.trouble = Trouble(reached ? "ask for the space of" : "reach", path, errno);
        return answer;
    }
    answer.device = status.st_dev;
    answer.total_bytes = uint64_t{space.f_blocks} * space.f_frsize;
    answer.used_bytes = uint64_t{space.f_blocks - space.f_bfree} * space.f_frsize;
    answer.available_bytes = uint64_t{space.f_bavail} * space.f_frsize;
    return answer;
}

PathAnswer AskText(const std::string& path) {
    PathAnswer answer;
    answer.text = ReadWholeFile(path, &answer.trouble, SHORT_TEXT);
    return answer;
}

std::string WithoutDuration(const std::string& reason) {
    return reason.substr(0, reason.rfind(SINCE));
}

struct PathProbe::State {
    enum class Stage { Idle, Asked, Answered };

    PathAnswer Answer() const {
        try {
            return question(path);
        } catch (const std::bad_alloc&) {
            PathAnswer none;
            none.trouble = {ENOMEM, "out of memory"};  // too short to need memory of its own
            return none;
        }
    }

    /// The thread: answers until it is told to stop.
    void Run() {
        pthread_setname_np(pthread_self(), "corvane-probe");
        std::unique_lock<std::mutex> lock(mutex);
        while (!stop) {
            if (stage != Stage::Asked) {
                changed.wait(lock);
                continue;
            }
            lock.unlock();
            PathAnswer given = Answer();
            lock.lock();
            answer = std::move(given);
            stage = Stage::Answered;
            changed.notify_all();
        }
    }

    const Question question;
    const std::string path;
    std::thread thread;
    std::mutex mutex;  // for what follows
    std::condition_variable changed;
    Stage stage = Stage::Idle;
    bool stop = false;
    PathAnswer answer;
};

PathProbe::PathProbe(Question question, const std::string& path)
    : m_state(new State{question, path, {}, {}, {}, {}, {}, {}}) {}

PathProbe::~PathProbe() {
    if (m_state == nullptr || !m_state->thread.joinable()) {
        return;
    }
    bool answering = false;
    {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        m_state->stop = true;
        answering = m_state->stage == State::Stage::Asked;
        m_state->changed.notify_all();
    }
    if (answering) {
        m_state->thread.detach();
    } else {
        m_state->thread.join();
    }
}

void PathProbe::Ask(Clock::time_point now) {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    m_waited_for = m_state->stage == State::Stage::Asked;
    if (m_state->stage != State::Stage::Idle) {
        return;
    }
    m_asked_at = now;
    if (!m_state->thread.joinable()) {
        try {
            m_state->thread = std::thread([state = m_state] { state->Run(); });
        } catch (const std::system_error& error) {
            m_state->answer = {};
            m_state->answer.trouble =
                Trouble("start a thread to ask", m_state->path, error.code().value());
            m_state->stage = State::Stage::Answered;
            return;
        }
    }
    m_state->stage = State::Stage::Asked;
    m_state->changed.notify_all();
}

std::optional<PathAnswer> PathProbe::Take(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(m_state->mutex);
    const auto answered = [&] { return m_state->stage == State::Stage::Answered; };
    if (m_waited_for ? !answered() : !m_state->changed.wait_until(lock, deadline, answered)) {
        return std::nullopt;
    }
    m_state->stage = State::Stage::Idle;
    return std::move(m_state->answer);
}

std::string PathProbe::Silence(Clock::time_point now) const {
    return std::string("does not answer") + SINCE +
           std::to_string(ElapsedSeconds(m_asked_at, now)) + " s";
}

}  // namespace corvane
