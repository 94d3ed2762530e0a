// Time as a list of steps: each changes some of the kernel's texts, runs a cycle and says what must
// come of it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "capturing_log.h"
#include "fake_kernel.h"

namespace corvane_test {

struct ReplayStep {
    std::string event;                 ///< what happened, for the message of a failure
    KernelFiles files;                 ///< texts that changed
    int32_t status = 0;                ///< of the cycle
    std::vector<uint64_t> figures;     ///< what the host then reads
    std::vector<std::string> records;  ///< ERROR records of the cycle
};

/// Runs `cycle` at each step, then `read`, which gives the figures in a fixed order.
inline void Replay(FakeKernel& kernel, const std::vector<ReplayStep>& steps,
                   const std::function<int32_t(LogCategory*)>& cycle,
                   const std::function<std::vector<uint64_t>()>& read) {
    CapturingLog log;
    for (const ReplayStep& step : steps) {
        SCOPED_TRACE(step.event);
        kernel.Write(step.files);
        EXPECT_EQ(cycle(&log), step.status);
        EXPECT_EQ(read(), step.figures);
        EXPECT_EQ(log.TakeTexts(), step.records);
    }
}

}  // namespace corvane_test
