// The service on this machine and on one that hangs: its thread, its readers and its end.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "host_logging.h"
#include "kernel.h"
#include "monitor_service.h"
#include "report_metrics.h"

namespace {

using namespace corvane;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

ServiceSettings EachSecond() {
    ServiceSettings settings;
    settings.report_interval = 1s;
    return settings;
}

/// What construction complains of; empty: nothing.
std::string Complaint(const ServiceSettings& settings) {
    try {
        const MonitorService service(settings);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

/// Whether a service can be started within a time.
bool MayStart() {
    for (const auto end = Clock::now() + 20s; Clock::now() < end;) {
        if (Complaint(EachSecond()).empty()) {
            return true;
        }
        std::this_thread::sleep_for(5ms);
    }
    return false;
}

std::shared_ptr<const Report> Wait(const MonitorService& service, const Report* last = nullptr) {
    for (const auto end = Clock::now() + 20s; Clock::now() < end;) {
        const auto report = service.Latest();
        if (report != nullptr && report.get() != last) {
            return report;
        }
        std::this_thread::sleep_for(5ms);
    }
    throw std::runtime_error("no report came");
}

TEST(Settings, ThatMakeNoSense) {
    using Kind = ProcessTarget::Kind;
    const struct {
        const char* complaint;
        void (*change)(ServiceSettings& s);
    } cases[] = {
        {"the report interval is 0 s; it must be from 1 s to a day",
         [](auto& s) { s.report_interval = 0s; }},
        {"the tiny cycle, 2 s, is longer than the report interval, 1 s",
         [](auto& s) { s.tiny_cycle = 2s; }},
        {"not a process number: 12x",
         [](auto& s) {
             s.processes = {{Kind::Pid, "12x"}};
         }},
        {"not the name of a unit: a/b",
         [](auto& s) {
             s.processes = {{Kind::Unit, "a/b"}};
         }},
        {"a directory is empty or holds a NUL", [](auto& s) { s.directories = {""}; }},
        {"the compatible reading chooses its interfaces itself",
         [](auto& s) { s.interfaces = {"eth0"}, s.compatible = true; }},
        {"",
         [](auto& s) {
             s.directories = {"/", "/"};
         }},
    };
    for (const auto& c : cases) {
        ServiceSettings settings = EachSecond();
        c.change(settings);
        EXPECT_EQ(Complaint(settings), c.complaint);
    }
}

TEST(Service, ReadersCallbacksAndMetrics) {
    HostLogCategory log(LOG_PRIORITY_ERROR);
    ServiceSettings settings = EachSecond();
    settings.log = &log;
    std::atomic<int> reports{0};
    settings.on_report = [&](const auto& /*report*/) {
        if (++reports == 1) {
            throw std::runtime_error("of the test's");
        }
        throw 1;
    };
    testing::internal::CaptureStderr();
    std::optional<MonitorService> service(std::in_place, settings);
    const ReportMetrics metrics(*service);
    EXPECT_EQ(service->Latest(), nullptr);
    EXPECT_EQ(metrics.Collect().size(), 2U);
    EXPECT_NE(Complaint(EachSecond()).find("lives in this process"), std::string::npos);
    std::vector<std::future<uint64_t>> readers;
    for (int reader = 0; reader < 4; ++reader) {
        readers.push_back(std::async(std::launch::async, [&] {
            const auto first = Wait(*service);
            return Wait(*service, first.get())->memory.total_mib;
        }));
    }
    for (auto& reader : readers) {
        EXPECT_GT(reader.get(), 0U);
    }
    EXPECT_GT(metrics.Collect().size(), 15U);
    const auto report = service->Latest();
    const auto stopped = Clock::now();
    service.reset();
    EXPECT_LT(Clock::now() - stopped, 500ms);
    EXPECT_EQ(report->processes.at(0).target, std::to_string(getpid()));
    EXPECT_EQ(report->processes.at(0).cpu.reason, "");
    EXPECT_GE(reports, 2);
    const std::string records = testing::internal::GetCapturedStderr();
    EXPECT_NE(records.find("the report's callback threw: of the test's."), std::string::npos);
    EXPECT_NE(records.find("the report's callback threw: no exception"), std::string::npos);
}

TEST(Service, EndsAtAnyMoment) {
    for (int moment = 0; moment < 60; ++moment) {
        const MonitorService service(EachSecond());
        std::this_thread::sleep_for(std::chrono::microseconds(moment * moment * 10));
    }
    // By its own callback.
    std::promise<void> ended;
    std::unique_ptr<MonitorService> service;
    std::mutex mutex;
    ServiceSettings settings = EachSecond();
    settings.on_report = [&](const auto& /*report*/) {
        const std::lock_guard<std::mutex> lock(mutex);
        service.reset();
        ended.set_value();
    };
    {
        const std::lock_guard<std::mutex> lock(mutex);
        service = std::make_unique<MonitorService>(settings);
    }
    EXPECT_EQ(ended.get_future().wait_for(20s), std::future_status::ready);
    EXPECT_TRUE(MayStart());  // once the thread has ended
}

/// What a child makes of it: its exit status; that of a child that hangs is -1.
template <typename Act>
int InChild(Act act) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        [&]() noexcept { act(); }();  // nothing may go on with the parent's tests
        _exit(1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Service, ForkExitAndNoThread) {
    EXPECT_EQ(InChild([] {
                  const MonitorService service(EachSecond());
                  exit(7);  // past the service
              }),
              7);
    EXPECT_EQ(
        InChild([] {
            setuid(getuid() == 0 ? 64999 : getuid());
            const rlimit none = {0, 0};
            setrlimit(RLIMIT_NPROC, &none);
            const std::string complaint = Complaint(EachSecond());
            _exit(complaint.find("cannot start the monitoring service's thread: ") == 0 ? 8 : 9);
        }),
        8);
    std::optional<MonitorService> service(std::in_place, EachSecond());
    const auto report = Wait(*service);
    EXPECT_EQ(InChild([&] {
                  const bool same = service->Latest() != nullptr;
                  const bool refused =
                      Complaint(EachSecond()).find("was forked") != std::string::npos;
                  service.reset();
                  exit(same && refused ? 10 : 11);
              }),
              10);
    EXPECT_NE(Wait(*service, report.get()), nullptr) << "the parent goes on";
}

TEST(Service, WhatHangsHoldsUpNothingElse) {
    corvane_test::Kernel kernel({{"/proc/meminfo", "MemTotal: 2048 kB\nMemFree: 1024 kB\n"},
                                 {"/proc/stat", "cpu  1 1 1 1 1 1 1\ncpu0 1 1 1 1 1 1 1\n"}});
    kernel.MakeFolder("/data");
    kernel.Hang("/data");
    ServiceSettings settings = EachSecond();
    settings.directories = {"/data"};
    std::optional<MonitorService> service(std::in_place, settings);
    const auto report = Wait(*service);
    EXPECT_EQ(report->memory.total_mib, 2U);
    EXPECT_EQ(report->directories.at(0).space.reason, "does not answer since 1 s");
    auto stopped = Clock::now();
    service.reset();
    EXPECT_LT(Clock::now() - stopped, 500ms);
    // A file of the kernel: the thread is left behind, and no other may start until it goes on.
    service.emplace(settings);
    Wait(*service);
    kernel.Hang("/proc/stat");
    std::this_thread::sleep_for(1100ms);
    stopped = Clock::now();
    service.reset();
    EXPECT_LT(Clock::now() - stopped, 1s);
    EXPECT_NE(Complaint(settings).find("left a thread behind"), std::string::npos);
    kernel.Hang("");
    EXPECT_TRUE(MayStart());
}

}  // namespace
