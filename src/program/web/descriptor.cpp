#include "web/descriptor.h"

#include <sys/resource.h>

#include <filesystem>

namespace corvane::program {

namespace {
constexpr size_t OPEN_AT_LEAST = 16;  // where nobody says how many are open
}

void RaiseDescriptorLimit() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);  // what is left is asked for afterwards
    }
}

size_t DescriptorsLeft() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    size_t open = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator it("/proc/self/fd", error), end; !error && it != end;
         it.increment(error)) {
        ++open;
    }
    open = error ? OPEN_AT_LEAST : open - 1;  // less the one that listed them
    return limit.rlim_cur > open ? limit.rlim_cur - open : 0;
}

}  // namespace corvane::program
