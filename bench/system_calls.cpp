#include "system_calls.h"

#include <elf.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace corvane_bench {

namespace {

constexpr int STOPPED_IN_SYSTEM_CALL = SIGTRAP | 0x80;

void Count(SystemCalls& calls, uint64_t number) {
    ++calls.all;
    switch (number) {
        case SYS_openat:
            ++calls.opens;
            break;
        case SYS_read:
            ++calls.reads;
            break;
        default:
            break;
    }
}

/// Runs the child from one stop to the next; false when it has ended.
bool RunToSystemCall(pid_t child) {
    int status = 0;
    if (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) != 0 || waitpid(child, &status, 0) < 0) {
        return false;
    }
    return WIFSTOPPED(status) && WSTOPSIG(status) == STOPPED_IN_SYSTEM_CALL;
}

SystemCalls Trace(pid_t child) {
    SystemCalls calls;
    // getppid brackets the operation.
    bool inside = false;
    while (RunToSystemCall(child)) {
        __ptrace_syscall_info info = {};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof(info), &info) <= 0) {
            break;
        }
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            continue;
        }
        if (info.entry.nr == SYS_getppid) {
            if (inside) {
                calls.known = true;
                break;
            }
            inside = true;
        } else if (inside) {
            Count(calls, info.entry.nr);
        }
    }
    return calls;
}

}  // namespace

SystemCalls CountSystemCalls(const Operation& operation) {
    const pid_t child = fork();
    if (child < 0) {
        return {};
    }
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(1);
        }
        raise(SIGSTOP);
        operation();  // once untraced, for what the C library does on a first call
        getppid();
        operation();
        getppid();
        _exit(0);
    }
    SystemCalls calls;
    int status = 0;
    if (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
        calls = Trace(child);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    return calls;
}

}  // namespace corvane_bench
