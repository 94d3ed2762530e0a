// A host on a made-up machine, that says in words what a call changed.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "corvane_error_code.h"
#include "kernel.h"
#include "kernel_texts.h"
#include "monitor_test_peer.h"

namespace corvane_test {

/// A host's logging library that remembers: the texts of records are part of the interface.
struct CapturingLog : LogCategory {
    /// Accepts records of the priority and of all that are more urgent.
    explicit CapturingLog(int32_t least_urgent = LOG_PRIORITY_ERROR) : accepted(least_urgent) {
        piPriorityLow = &accepted;
    }
    CapturingLog(const CapturingLog&) = delete;
    CapturingLog& operator=(const CapturingLog&) = delete;
    ~CapturingLog() = default;

    /// The texts since the last call, oldest first, behind their priority unless it is ERROR.
    std::vector<std::string> Take() { return std::exchange(texts, {}); }

    int32_t accepted;
    bool agrees = true;  ///< what CategoryCanWrite answers
    int asked = 0;       ///< how often it was asked
    std::vector<std::string> texts;
    std::string source;  ///< file and function of the latest record
};

/// What the test's GetDiskSize gives.
struct DiskSize {
    int32_t status = 0;
    uint64_t total_mb = 0;
    uint64_t free_mb = 0;
};
inline DiskSize disk_size;

constexpr uint32_t PID = 1;  ///< the process that the host watches

/// What operations write into; untouched members are not shown.
struct Records {
    CorvaneCommon::CPUInfoResult core;                  ///< "core", cores, percent
    CorvaneCommon::MemoryInfo memory;                   ///< "memory", total, used
    CorvaneCommon::ProcessMemoryInfo process_memory;    ///< "process memory", physical, virtual
    CorvaneCommon::NetworkInfoResult interface;         ///< "interface", as "network"
    CorvaneCommon::DiskInfoResult space;                ///< "space", path, total, used
    int32_t percent[2];                                 ///< "percent", process, thread
    char text[CorvaneCommon::MONITOR_NAME_LENGTH * 2];  ///< "text"
};

class Host {
public:
    using Call = std::function<int32_t()>;
    struct Step {
        KernelFiles files;  ///< that changed
        std::string seen;
    };

    /// Starts a fresh monitor on a machine that has these files and no others.
    template <typename... Files>
    void Boot(const Files&... files) {
        kernel.Remove("/");
        (kernel.Write(files), ...);
        Start();
    }
    /// The same on the machine as it is.
    void Start();

    /// Runs a call and tells, apart by "; ": its status by name unless it is 0, its records, the
    /// figures that the monitor keeps where they differ from the last look's ("cpu", "tiny cpu":
    /// cores, percent; "process", "tiny process": percent, busiest thread's; "network", "tiny
    /// network", "process network": megabits in, out, packets in, out, names; each of `paths`:
    /// disk, percent, operations; "disks": names; "cores": name, percent; "interfaces": name, bytes
    /// in and out, packets in and out), and what the call wrote into `out`.
    std::string See(const Call& call);
    /// The next look tells every figure.
    void Forget() { m_seen.clear(); }
    void Replay(const Call& call, const std::vector<Step>& steps);

    Kernel kernel;
    std::unique_ptr<Monitor> inside;                   ///< with private operations and state
    CorvaneCommon::CMonitorPhysicalUtil* m = nullptr;  ///< the same
    CapturingLog records;
    LogCategory* log = &records;
    Records out;
    std::vector<std::string> paths;  ///< directories whose load is looked at

private:
    using Figures = std::vector<std::pair<std::string, std::string>>;  // by name

    Figures Kept();
    Figures Written() const;

    Figures m_seen;
};

/// See a call of the test's own, at once or when files have changed.
#define SEE(call) See([&]() -> int32_t { return call; })
#define AFTER(files, call) See([&]() -> int32_t { return kernel.Write(files), call; })

class HostTest : public testing::Test, protected Host {};

/// "WRONG" for bad arguments, "FAILED" for a system call, "NO SAMPLE", "NO DEVICE", or a number.
std::string StatusName(int32_t status);

}  // namespace corvane_test
