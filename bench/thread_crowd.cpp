#include "thread_crowd.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace corvane_bench {

namespace {

void* Sleep(void* /*argument*/) {
    for (;;) {
        pause();
    }
}

int StartThreads(int threads) {
    constexpr size_t STACK_LENGTH = 64 * 1024;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, STACK_LENGTH);
    int started = 1;
    pthread_t thread;
    while (started < threads && pthread_create(&thread, &attributes, &Sleep, nullptr) == 0) {
        ++started;
    }
    return started;
}

}  // namespace

ThreadCrowd::ThreadCrowd(int threads) {
    int ready[2];
    if (pipe(ready) != 0) {
        return;
    }
    m_pid = fork();
    if (m_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int started = StartThreads(threads);
        constexpr useconds_t SETTLE_MICROSECONDS = 100000;
        usleep(SETTLE_MICROSECONDS);
        if (write(ready[1], &started, sizeof(started)) != sizeof(started)) {
            _exit(1);
        }
        Sleep(nullptr);
    }
    close(ready[1]);
    if (read(ready[0], &m_threads, sizeof(m_threads)) != sizeof(m_threads)) {
        m_threads = 0;
    }
    close(ready[0]);
}

ThreadCrowd::~ThreadCrowd() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

}  // namespace corvane_bench
