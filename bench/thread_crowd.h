// A process with many sleeping threads, for as long as the object lives.
#pragma once

#include <sys/types.h>

namespace corvane_bench {

class ThreadCrowd {
public:
    /// Forks; waits until every thread sleeps. Take it before this process has threads of its own.
    explicit ThreadCrowd(int threads);
    ThreadCrowd(const ThreadCrowd&) = delete;
    ThreadCrowd& operator=(const ThreadCrowd&) = delete;
    ~ThreadCrowd();

    pid_t Pid() const { return m_pid; }
    /// Threads that the machine granted, the first one included.
    int Threads() const { return m_threads; }

private:
    pid_t m_pid = -1;
    int m_threads = 0;
};

}  // namespace corvane_bench
