// The instance, the file helpers, the log writer and the status codes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "capturing_log.h"
#include "corvane_error_code.h"
#include "fake_kernel.h"
#include "kernel_texts.h"
#include "monitor_test_peer.h"

namespace corvane_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

TEST(ErrorCode, FollowsTheFamilyRule) {
    EXPECT_EQ(COMMON_ERR_INVALID_ARGUMENTS, -281);
    EXPECT_EQ(COMMON_ERR_LINUX_SYSTEM_CALL_FAIL, -3353);
    EXPECT_EQ(COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE, -3609);
}

TEST(Instance, IsOneAndDiscoversOnceOnly) {
    FakeKernel kernel(KernelFiles{{"/proc/stat", StatText({{"cpu0", 1, 1}})}});
    auto* const first = CorvaneCommon::CMonitorPhysicalUtil::GetInstance();
    const int opened = kernel.Count(KernelCall::Open);
    EXPECT_EQ(CorvaneCommon::CMonitorPhysicalUtil::GetInstance(), first);
    EXPECT_EQ(opened, 2);
    EXPECT_EQ(kernel.Count(KernelCall::Open), opened);
    EXPECT_STREQ(first->GetDefaultDiskFilePath(), "/");
    EXPECT_EQ(first->GetCPUCoreNum(), static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
}

TEST(Instance, IsUsableWithoutAnyKernelFile) {
    const FakeKernel kernel;
    Monitor monitor;
    EXPECT_THAT(monitor.cpu_core_name, IsEmpty());
    EXPECT_THAT(monitor.network_nic_name, IsEmpty());
    CapturingLog log;
    EXPECT_EQ(monitor->CalcCPUMonitorInfo(true, &log), COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_THAT(
        log.TakeTexts(),
        ElementsAre("fopen /proc/stat failed, error_msg: No such file or directory.",
                    "ReadFromFile failed, file: /proc/stat.", "GetRawCPUInfo failed, ret: -3353."));
}

TEST(LogWriter, AsksTheHostOnlyWithinBothThresholds) {
    struct Case {
        int32_t low;
        bool has_low;
        int32_t high;
        bool has_high;
        bool host_agrees;
        int asked;
        size_t written;
    };
    const Case cases[] = {
        {0, false, 0, false, true, 1, 1},   {-1, true, 0, false, true, 1, 1},
        {300, true, 0, false, true, 1, 1},  {299, true, 0, false, true, 0, 0},
        {800, true, 300, true, true, 1, 1}, {800, true, 301, true, true, 0, 0},
        {800, true, 0, true, false, 1, 0},
    };
    const FakeKernel kernel;
    Monitor monitor;
    for (const Case& c : cases) {
        CapturingLog log;
        log.agrees = c.host_agrees;
        log.piPriorityLow = c.has_low ? &c.low : nullptr;
        log.piPriorityHigh = c.has_high ? &c.high : nullptr;
        monitor->GetMemoryMonitorInfo(nullptr, &log);
        EXPECT_EQ(log.asked, c.asked) << c.low << " " << c.high;
        EXPECT_EQ(log.Records().size(), c.written) << c.low << " " << c.high;
    }
}

TEST(LogWriter, NamesTheSourceRelativeToTheRepository) {
    const FakeKernel kernel;
    Monitor monitor;
    CapturingLog log;
    monitor->GetMemoryMonitorInfo(nullptr, &log);
    ASSERT_EQ(log.Records().size(), 1U);
    EXPECT_EQ(log.Records()[0].file, "src/common/monitor_physical_util_memory.cpp");
    EXPECT_EQ(log.Records()[0].function, "GetMemoryMonitorInfo");
    EXPECT_EQ(log.Records()[0].priority, LOG_PRIORITY_ERROR);
}

TEST(ReadFromFile, RefusesBadArgumentsWithTheSystemCallCode) {
    const FakeKernel kernel;
    Monitor monitor;
    CapturingLog log;
    char buffer[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(monitor.ReadFromFile(buffer, 0U, "/f", &log), COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_EQ(monitor.ReadFromFile(nullptr, 4U, "/f", &log), COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_EQ(monitor.ReadFromFile(buffer, 4U, nullptr, &log), COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_EQ(monitor.ReadFromFile(buffer, 4U, "", &log), COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_EQ(buffer[0], 'x');
    const auto texts = log.TakeTexts();
    ASSERT_EQ(texts.size(), 4U);
    EXPECT_THAT(texts[1],
                StartsWith("file_content is NULL or 0 >= file_content_length or file_path "
                           "is NULL, file_content: (nil), file_content_length: 4, "
                           "file_path: 0x"));
    EXPECT_EQ(kernel.Count(KernelCall::Open), 2);  // the two discoveries
}

TEST(ReadFromFile, KeepsWhatStandsBehindTheData) {
    struct Case {
        std::string file;
        std::string buffer;  // of eight, filled with x before
    };
    using namespace std::string_literals;
    const Case cases[] = {
        {"", "\0xxxxxx\0"s},         {"abc", "abcxxxx\0"s},
        {"abcdefgh", "abcdefg\0"s},  {"abcdefghijkl", "abcdefg\0"s},
        {"a\0c\n"s, "a\0c\nxxx\0"s},
    };
    FakeKernel kernel;
    Monitor monitor;
    for (const Case& c : cases) {
        kernel.Write("/f", c.file);
        std::string buffer(8, 'x');
        EXPECT_EQ(monitor.ReadFromFile(buffer.data(), 8U, "/f", nullptr), 0);
        EXPECT_EQ(buffer, c.buffer);
    }
}

TEST(ReadFromFile, ReportsAReadThatFailsAndKeepsItsPart) {
    FakeKernel kernel(KernelFiles{{"/f", "abcdef"}});
    kernel.MakeFolder("/folder");
    Monitor monitor;
    CapturingLog log;
    char buffer[16] = {};
    kernel.Fail(KernelCall::Read, 1, EIO, 3);
    EXPECT_EQ(monitor.ReadFromFile(buffer, 16U, "/f", &log), COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(monitor.ReadFromFile(buffer, 16U, "/folder", &log),
              COMMON_ERR_LINUX_SYSTEM_CALL_FAIL);
    EXPECT_STREQ(buffer, "");
    EXPECT_THAT(log.TakeTexts(), ElementsAre("fread failed, file: /f, errno: 5.",
                                             "fread failed, file: /folder, errno: 21."));
}

TEST(GetRealFilePath, ResolvesLinksAndCutsToTheDestination) {
    const std::string long_name = "/" + std::string(200, 'n');
    FakeKernel kernel(KernelFiles{{"/data/file", ""}, {long_name, ""}});
    kernel.MakeLink("/link", "/data/file");
    kernel.MakeLink("/loop", "/loop");
    Monitor monitor;
    char path[CorvaneCommon::MONITOR_NAME_LENGTH] = {};
    EXPECT_EQ(monitor.GetRealFilePath(path, 128U, "/link", nullptr), 0);
    EXPECT_STREQ(path, "/data/file");
    EXPECT_EQ(monitor.GetRealFilePath(path, 6U, "/data/../link", nullptr), 0);
    EXPECT_STREQ(path, "/data");
    EXPECT_EQ(monitor.GetRealFilePath(path, 128U, long_name.c_str(), nullptr), 0);
    EXPECT_EQ(path, long_name.substr(0, 127));

    CapturingLog log;
    EXPECT_EQ(monitor.GetRealFilePath(path, 128U, "/none", &log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor.GetRealFilePath(path, 0U, "/link", &log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_EQ(monitor.GetRealFilePath(path, 128U, nullptr, &log), COMMON_ERR_INVALID_ARGUMENTS);
    kernel.Fail(KernelCall::RealPath, 1, EACCES);
    EXPECT_EQ(monitor.GetRealFilePath(path, 128U, "/link", &log), COMMON_ERR_INVALID_ARGUMENTS);
    EXPECT_THAT(log.TakeTexts(),
                ElementsAre("file_path is not exist, file_path: /none.",
                            StartsWith("real_file_path is NULL or real_file_path_length <=0 or "
                                       "file_path is NULL, real_file_path: 0x"),
                            StartsWith("real_file_path is NULL or"),
                            "/link can not resolved to real path, error_msg: Permission denied."));
}

/// Assigns a record without a zero byte to another: how many of its bytes are not taken over.
template <typename Record>
int BytesLostByAssignment() {
    Record full;
    memset(static_cast<void*>(&full), 'x', sizeof(full));
    Record copy;
    copy = full;
    const Record& itself = copy;
    copy = itself;
    int lost = 0;
    for (size_t i = 0; i < sizeof(full); ++i) {
        lost += reinterpret_cast<const char*>(&copy)[i] == 'x' ? 0 : 1;
    }
    return lost;
}

TEST(Records, AssignmentTakesAllButTheLastCharacterOfANameThatNeverEnds) {
    EXPECT_EQ(BytesLostByAssignment<CorvaneCommon::CPUInfo>(), 1);
    EXPECT_EQ(BytesLostByAssignment<CorvaneCommon::NetworkInfo>(), 1);
    EXPECT_EQ(BytesLostByAssignment<CorvaneCommon::NetworkInfoResult>(), 2);
}

TEST(Checks, PathsAndPids) {
    FakeKernel kernel(KernelFiles{{"/proc/17/stat", ""}});
    Monitor monitor;
    EXPECT_TRUE(monitor->IsFileExist("/proc/17"));
    EXPECT_FALSE(monitor->IsFileExist("/proc/18"));
    EXPECT_FALSE(monitor->IsFileExist(nullptr));
    CapturingLog log;
    EXPECT_TRUE(monitor->IsPIDValid(17, &log));
    EXPECT_FALSE(monitor->IsPIDValid(0, &log));
    EXPECT_FALSE(monitor->IsPIDValid(4294967295U, &log));
    EXPECT_THAT(log.TakeTexts(), IsEmpty());
    monitor.CloseFd(nullptr);
    monitor.ClosePipeFd(nullptr);
    monitor.ClosePipeFd(popen(":", "r"));
    EXPECT_EQ(waitpid(-1, nullptr, 0), -1) << "a child was left";
}

}  // namespace
}  // namespace corvane_test
