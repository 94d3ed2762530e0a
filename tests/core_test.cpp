// The instance, the file helpers, the log writer and the records.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host.h"

namespace corvane_test {
namespace {

using namespace CorvaneCommon;
using namespace std::string_literals;
using Helpers = HostTest;

TEST_F(Helpers, TheInstanceIsOneAndDiscoversOnce) {
    Boot(Stat("cpu0 1 1"), KernelFiles{{"/proc/1/stat", ""}});
    kernel.ResetCounts();
    auto* const first = CMonitorPhysicalUtil::GetInstance();
    EXPECT_EQ(CMonitorPhysicalUtil::GetInstance(), first);
    EXPECT_EQ(kernel.Count(KernelCall::Open), 2);
    EXPECT_STREQ(first->GetDefaultDiskFilePath(), "/");
    EXPECT_EQ(first->GetCPUCoreNum(), static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_TRUE(m->IsFileExist("/proc/1") && m->IsPIDValid(1, log));
    EXPECT_FALSE(m->IsFileExist("/proc/18") || m->IsFileExist(nullptr));
    EXPECT_FALSE(m->IsPIDValid(0, log) || m->IsPIDValid(UINT32_MAX, log));
    EXPECT_TRUE(records.Take().empty());
}

TEST_F(Helpers, LogThresholdsStandBeforeTheHostsAnswer) {
    Boot();
    const auto expect = [&](int32_t low, int32_t high, bool agrees, int asked, bool written) {
        records.agrees = agrees;
        records.asked = 0;
        records.piPriorityLow = low == -2 ? nullptr : &low;
        records.piPriorityHigh = high == -2 ? nullptr : &high;
        EXPECT_EQ(SEE(m->GetMemoryMonitorInfo(nullptr, log)),
                  written ? "WRONG; memory_info is NULL." : "WRONG");
        EXPECT_EQ(records.asked, asked) << low << " " << high;
    };
    expect(-2, -2, true, 1, true);  // none set
    expect(-1, -2, true, 1, true);
    expect(300, 300, true, 1, true);
    expect(299, -2, true, 0, false);
    expect(800, 301, true, 0, false);
    expect(800, 0, false, 1, false);
    EXPECT_EQ(records.source, "src/common/monitor_physical_util_memory.cpp GetMemoryMonitorInfo");
}

TEST_F(Helpers, AReadKeepsWhatStandsBehindTheData) {
    Boot();
    std::string buffer;
    const Call read = [&] { return inside->ReadFromFile(buffer.data(), 8U, "/f", log); };
    for (const auto& [file, read_into] :
         std::vector<std::pair<std::string, std::string>>{{"", "\0xxxxxx\0"s},
                                                          {"abc", "abcxxxx\0"s},
                                                          {"abcdefg", "abcdefg\0"s},
                                                          {"abcdefgh", "abcdefg\0"s},
                                                          {"abcdefghijkl", "abcdefg\0"s},
                                                          {"a\0c\n"s, "a\0c\nxxx\0"s}}) {
        kernel.Write("/f", file);
        buffer = "xxxxxxxx";
        EXPECT_EQ(See(read), "");
        EXPECT_EQ(buffer, read_into);
    }
    kernel.Fail(KernelCall::Read, 1, EIO, 3);
    EXPECT_EQ(See(read), "FAILED; fread failed, file: /f, errno: 5.");
    EXPECT_EQ(buffer, "a\0c\nxxx\0"s);
    kernel.Remove("/f");
    EXPECT_EQ(See(read), "FAILED; fopen /f failed, error_msg: No such file or directory.");
    EXPECT_EQ(buffer[0], '\0');
}

TEST_F(Helpers, ARealPathIsResolvedAndCut) {
    const std::string x127 = "/" + std::string(126, 'x');
    Boot(KernelFiles{{"/data/file", ""}, {x127 + "yy", ""}});
    kernel.MakeLink("/link", "/data/file");
    const auto resolve = [&](const std::string& path, uint32_t length = 128) {
        return SEE(inside->GetRealFilePath(out.text, length, path.c_str(), log));
    };
    EXPECT_EQ(resolve("/link"), "text /data/file");
    EXPECT_EQ(resolve("/data/../link", 6), "text /data");
    EXPECT_EQ(resolve(x127 + "yy"), "text " + x127);
    // A link that the path came to be when it was cut: followed, unless its target is as long.
    kernel.MakeLink(x127, std::string(127, 't'));
    EXPECT_EQ(resolve(x127 + "yy"), "text " + std::string(127, 't'));
    kernel.MakeLink(x127, std::string(128, 't'));
    EXPECT_EQ(resolve(x127 + "yy"), "text " + x127);
    EXPECT_EQ(resolve("/none"), "WRONG; file_path is not exist, file_path: /none.");
    kernel.Fail(KernelCall::RealPath, 1, EACCES);
    EXPECT_EQ(resolve("/link"),
              "WRONG; /link can not resolved to real path, error_msg: Permission denied.");
}

/// How many bytes are not 0 in a new record, and how many of a full one assignment loses.
template <typename Record>
std::pair<size_t, size_t> StrayAndLostBytes() {
    const auto count = [](const Record& record, char byte) {
        const auto* const bytes = reinterpret_cast<const char*>(&record);
        return sizeof(record) -
               static_cast<size_t>(std::count(bytes, bytes + sizeof(record), byte));
    };
    Record full;
    Record copy;
    const size_t stray = count(copy, '\0');
    memset(static_cast<void*>(&full), 'x', sizeof(full));
    copy = full;
    const Record& itself = copy;
    copy = itself;
    return {stray, count(copy, 'x')};
}

TEST(Records, StartAtZeroAndLoseTheLastCharacterOfANameThatNeverEnds) {
    EXPECT_EQ(StrayAndLostBytes<CPUInfo>(), std::pair(0UL, 1UL));
    EXPECT_EQ(StrayAndLostBytes<NetworkInfo>(), std::pair(0UL, 1UL));
    EXPECT_EQ(StrayAndLostBytes<NetworkInfoResult>(), std::pair(0UL, 2UL));
    const size_t of_others =
        StrayAndLostBytes<CPUInfoResult>().first + StrayAndLostBytes<MemoryInfo>().first +
        StrayAndLostBytes<ProcessMemoryInfo>().first + StrayAndLostBytes<DiskIOInfo>().first +
        StrayAndLostBytes<DiskIOInfoResult>().first + StrayAndLostBytes<DiskInfoResult>().first +
        StrayAndLostBytes<DiskNameInfoResult>().first;
    EXPECT_EQ(of_others, 0U);
}

}  // namespace
}  // namespace corvane_test
