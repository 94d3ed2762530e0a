#include "raw_calls.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace corvane_bench {

namespace {

char g_buffer[40960];  // as large as the monitor's, so that the kernel fills it in as many reads

}  // namespace

void RawRead(const char* path) {
    const int descriptor = open(path, O_RDONLY);
    if (descriptor < 0) {
        return;
    }
    while (read(descriptor, g_buffer, sizeof(g_buffer)) > 0) {
    }
    close(descriptor);
}

std::function<void()> RawReread(const char* path, int reads) {
    return [descriptor = open(path, O_RDONLY | O_CLOEXEC), reads] {
        lseek(descriptor, 0, SEEK_SET);
        for (int i = 0; i < reads; ++i) {
            [[maybe_unused]] const ssize_t ignored = read(descriptor, g_buffer, sizeof(g_buffer));
        }
    };
}

void RawExists(const char* path) {
    [[maybe_unused]] const int ignored = access(path, F_OK);
}

void RawRealPath(const char* path) {
    char resolved[PATH_MAX];
    [[maybe_unused]] const char* const ignored = realpath(path, resolved);
}

void RawReadLink(const char* path) {
    char target[128];
    [[maybe_unused]] const ssize_t ignored = readlink(path, target, sizeof(target));
}

void RawReadThreads(pid_t pid) {
    char path[512];
    const auto length = static_cast<size_t>(snprintf(path, sizeof(path), "/proc/%d/task", pid));
    DIR* const directory = opendir(path);
    if (directory == nullptr) {
        return;
    }
    path[length] = '/';
    while (const dirent* const entry = readdir(directory)) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        strcpy(stpcpy(path + length + 1, entry->d_name), "/stat");
        struct stat status = {};
        if (stat(path, &status) == 0) {
            RawRead(path);
        }
    }
    closedir(directory);
}

}  // namespace corvane_bench
