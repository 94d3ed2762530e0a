// The physical floor: the system calls that an operation cannot do without, and nothing else. What
// is read is not looked at.
#pragma once

#include <sys/types.h>

#include <functional>

namespace corvane_bench {

/// open, read to the end, close.
void RawRead(const char* path);

/// A file kept open, which is what the operation holds: seek to the start, then so many reads.
std::function<void()> RawReread(const char* path, int reads);

/// access.
void RawExists(const char* path);

/// Resolves a path and drops the result.
void RawRealPath(const char* path);

/// readlink on a path that is no link.
void RawReadLink(const char* path);

/// opendir, then stat and RawRead of each thread's stat file.
void RawReadThreads(pid_t pid);

}  // namespace corvane_bench
