// What a service costs its server: CPU time and memory of this process with one cycle a second,
// less those of the same process without it.
//
//   service_cost [--check] [SECONDS]
//
// --check ends with 1 above 0.05 % of a core or 1 MiB.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "monitor_service.h"

namespace {

constexpr double MAX_CORE_PERCENT = 0.05;
constexpr double MAX_KIB = 1024;

struct Cost {
    double cpu_seconds = 0;
    double private_kib = 0;  ///< pages that no other process shares
};

double PrivateKib() {
    std::ifstream file("/proc/self/smaps_rollup");
    double sum = 0;
    for (std::string word; file >> word;) {
        double kib = 0;
        if ((word == "Private_Dirty:" || word == "Private_Clean:") && file >> kib) {
            sum += kib;
        }
    }
    return sum;
}

double CpuSeconds() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// A child's cost, with or without a service; the first cycle and report are not counted as CPU.
Cost Measure(bool with_service, int seconds) {
    int ends[2];
    if (pipe(ends) != 0) {
        perror("pipe");
        exit(2);
    }
    if (fork() == 0) {
        std::optional<corvane::MonitorService> service;
        if (with_service) {
            service.emplace();
        }
        std::this_thread::sleep_for(std::chrono::seconds(12));
        const double before = CpuSeconds();
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        const Cost cost = {CpuSeconds() - before, PrivateKib()};
        const bool told = write(ends[1], &cost, sizeof(cost)) == sizeof(cost);
        _exit(told ? 0 : 2);
    }
    Cost cost;
    close(ends[1]);
    if (read(ends[0], &cost, sizeof(cost)) != sizeof(cost)) {
        fprintf(stderr, "the measuring process failed\n");
        exit(2);
    }
    close(ends[0]);
    wait(nullptr);
    return cost;
}

}  // namespace

int main(int argc, char** argv) {
    const bool check = argc > 1 && strcmp(argv[1], "--check") == 0;
    const int seconds = argc > (check ? 2 : 1) ? atoi(argv[argc - 1]) : 60;
    const Cost without = Measure(false, seconds);
    const Cost with = Measure(true, seconds);
    const double percent = (with.cpu_seconds - without.cpu_seconds) / seconds * 100;
    const double kib = with.private_kib - without.private_kib;
    printf("a service with its defaults for %d s: %.3f %% of a core, %.0f KiB\n", seconds, percent,
           kib);
    return check && (percent > MAX_CORE_PERCENT || kib > MAX_KIB) ? 1 : 0;
}
