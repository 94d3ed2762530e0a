// The instance, the file helpers, the log writer and the records.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host.h"

namespace corvane_test {
namespace {

using CorvaneCommon::CMonitorPhysicalUtil;
using Helpers = HostTest;
using namespace std::string_literals;

TEST_F(Helpers, TheInstanceIsOneAndDiscoversOnce) {
    Boot(Stat("cpu0 1 1"));
    kernel.ResetCounts();
    auto* const first = CMonitorPhysicalUtil::GetInstance();
    EXPECT_EQ(CMonitorPhysicalUtil::GetInstance(), first);
    EXPECT_EQ(kernel.Count(KernelCall::Open), 2);
    EXPECT_STREQ(first->GetDefaultDiskFilePath(), "/");
    EXPECT_EQ(first->GetCPUCoreNum(), static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
}

TEST_F(Helpers, LogThresholdsStandBeforeTheHostsAnswer) {
    const struct {
        int32_t low;  // -2: not set
        int32_t high;
        bool agrees;
        int asked;
        std::string seen;
    } cases[] = {
        {-2, -2, true, 1, "WRONG; memory_info is NULL."},
        {-1, -2, true, 1, "WRONG; memory_info is NULL."},
        {300, 300, true, 1, "WRONG; memory_info is NULL."},
        {299, -2, true, 0, "WRONG"},
        {800, 301, true, 0, "WRONG"},
        {800, 0, false, 1, "WRONG"},
    };
    Boot();
    for (const auto& c : cases) {
        records.agrees = c.agrees;
        records.asked = 0;
        records.piPriorityLow = c.low == -2 ? nullptr : &c.low;
        records.piPriorityHigh = c.high == -2 ? nullptr : &c.high;
        EXPECT_EQ(See([&] { return m->GetMemoryMonitorInfo(nullptr, log); }), c.seen);
        EXPECT_EQ(records.asked, c.asked) << c.low << " " << c.high;
    }
    EXPECT_EQ(records.source, "src/common/monitor_physical_util_memory.cpp GetMemoryMonitorInfo");
}

TEST_F(Helpers, AReadKeepsWhatStandsBehindTheData) {
    const struct {
        std::string file;
        std::string buffer;  // of eight, filled with x before
    } cases[] = {
        {"", "\0xxxxxx\0"s},        {"abc", "abcxxxx\0"s},          {"abcdefg", "abcdefg\0"s},
        {"abcdefgh", "abcdefg\0"s}, {"abcdefghijkl", "abcdefg\0"s}, {"a\0c\n"s, "a\0c\nxxx\0"s},
    };
    Boot();
    std::string buffer;
    const auto read = [&] { return inside->ReadFromFile(buffer.data(), 8U, "/f", log); };
    for (const auto& c : cases) {
        buffer = "xxxxxxxx";
        EXPECT_EQ(After(read, KernelFiles{{"/f", c.file}}), "");
        EXPECT_EQ(buffer, c.buffer);
    }
    kernel.FailReads("/f", 3);
    EXPECT_EQ(See(read), "FAILED; fread failed, file: /f, errno: 5.");
    EXPECT_EQ(buffer, "a\0c\nxxx\0"s);
    kernel.MakeFolder("/f");
    EXPECT_EQ(See(read), "FAILED; fread failed, file: /f, errno: 21.");
    kernel.Remove("/f");
    EXPECT_EQ(See(read), "FAILED; fopen /f failed, error_msg: No such file or directory.");
    EXPECT_EQ(buffer[0], '\0');
}

TEST_F(Helpers, ARealPathIsResolvedAndCut) {
    const std::string x126 = "/" + std::string(126, 'x');
    Boot(KernelFiles{{"/data/file", ""}, {x126 + "yy", ""}});
    kernel.MakeLink("/link", "/data/file");
    kernel.MakeLink("/loop", "/loop");
    const auto resolve = [&](const std::string& path, uint32_t length = 128) {
        return See([&] { return inside->GetRealFilePath(out.text, length, path.c_str(), log); });
    };
    EXPECT_EQ(resolve("/link"), "text /data/file");
    EXPECT_EQ(resolve("/data/../link", 6), "text /data");
    EXPECT_EQ(resolve(x126 + "yy"), "text " + x126);
    // Links that the path came to be when it was cut: followed, unless the target is as long.
    kernel.MakeLink(x126, "/elsewhere");
    EXPECT_EQ(resolve(x126 + "yy"), "text /elsewhere");
    kernel.MakeLink(x126, std::string(127, 't'));
    EXPECT_EQ(resolve(x126 + "yy"), "text " + std::string(127, 't'));
    kernel.MakeLink(x126, std::string(128, 't'));
    EXPECT_EQ(resolve(x126 + "yy"), "text " + x126);
    EXPECT_EQ(resolve("/loop"), "WRONG; file_path is not exist, file_path: /loop.");
    kernel.Fail(KernelCall::RealPath, 1, EACCES);
    EXPECT_EQ(resolve("/link"),
              "WRONG; /link can not resolved to real path, error_msg: Permission denied.");
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
    const std::string bytes(reinterpret_cast<const char*>(&copy), sizeof(copy));
    return static_cast<int>(sizeof(copy)) -
           static_cast<int>(std::count(bytes.begin(), bytes.end(), 'x'));
}

TEST(Records, AssignmentTakesAllButTheLastCharacterOfANameThatNeverEnds) {
    EXPECT_EQ(BytesLostByAssignment<CorvaneCommon::CPUInfo>(), 1);
    EXPECT_EQ(BytesLostByAssignment<CorvaneCommon::NetworkInfo>(), 1);
    EXPECT_EQ(BytesLostByAssignment<CorvaneCommon::NetworkInfoResult>(), 2);
}

TEST_F(Helpers, PathsPidsAndStreams) {
    Boot(KernelFiles{{"/proc/17/stat", ""}});
    EXPECT_TRUE(m->IsFileExist("/proc/17"));
    EXPECT_FALSE(m->IsFileExist("/proc/18"));
    EXPECT_FALSE(m->IsFileExist(nullptr));
    EXPECT_TRUE(m->IsPIDValid(17, log));
    EXPECT_FALSE(m->IsPIDValid(0, log));
    EXPECT_FALSE(m->IsPIDValid(4294967295U, log));
    EXPECT_TRUE(records.Take().empty());
    inside->CloseFd(nullptr);
    inside->ClosePipeFd(nullptr);
    inside->ClosePipeFd(popen(":", "r"));
    EXPECT_EQ(waitpid(-1, nullptr, 0), -1) << "a child was left";
}

}  // namespace
}  // namespace corvane_test
