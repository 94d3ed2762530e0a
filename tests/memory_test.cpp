// Memory of the machine and of a process.
#include <cerrno>

#include "host.h"

namespace corvane_test {
namespace {

using Memory = HostTest;

std::string Without(std::string text, const std::string& key) {
    const size_t start = text.find(key);
    return text.erase(start, text.find('\n', start) + 1 - start);
}

std::string CutBehind(const std::string& text, const std::string& key) {
    return text.substr(0, text.find('\n', text.find(key)));
}

TEST_F(Memory, OfTheMachine) {
    const std::string total = "MemTotal:        1000000 kB";
    const std::string all =
        total +
        "\nMemFree:  200000 kB\nMemAvailable: 500000 kB\nBuffers: 50000 kB\n"
        "Cached:  300000 kB\nSwapCached: 7 kB\nShmem: 10000 kB\nShmemHugePages: 9 kB\n";
    const std::string sscanf_failed = "FAILED; sscanf failed, file: /proc/meminfo, buf: ";
    const std::string left = "memory 1000000 0";
    const std::string x(50000, 'x');
    const struct {
        std::string text;
        std::string seen;  // before what the public operation says of it
    } cases[] = {
        {all, "memory 976 449"},  // shared memory is in use
        {Without(all, "MemAvailable"), "memory 976 449"},
        {"MemTotal: 1023 kB\nMemFree: 0 kB\nBuffers: 0\t7\nCached: 0 kB\nShmem: 0 kB\n",
         "memory 0 0"},
        // More free than there is: the difference wraps.
        {"MemTotal: 0 k\nMemFree: 1024 k\nBuffers: 0 k\nCached: 0 k\nShmem: 0 k\n",
         "memory 0 18014398509481983"},
        // More digits than 64 bits hold read as the largest number.
        {"MemTotal: 99999999999999999999 k\nMemFree: 1 k\nBuffers: 0 k\nCached: 0 k\nShmem: 0 k\n",
         "memory 18014398509481983 18014398509481983"},
        {"", "WRONG;  Can not find MemTotal.; memory 0 0"},
        {total, "WRONG; " + total + " Can not find \\n after MemTotal.; memory 0 0"},
        {"MemTotal: none\n", sscanf_failed + "MemTotal: none.; memory 0 0"},
        {"MemTotal:1 kB\n", sscanf_failed + "MemTotal:1 kB.; memory 0 0"},
        {Without(all, "MemFree"), "WRONG; " + total + " Can not find MemFree.; " + left},
        {CutBehind(all, "MemFree"),
         "WRONG; " + total + " Can not find \\n after MemFree.; " + left},
        {total + "\nMemFree: - kB\n", sscanf_failed + total + ".; " + left},
        {Without(all, "Buffers"), "WRONG; " + total + " Can not find Cached.; " + left},
        {CutBehind(all, "Buffers"), "WRONG; " + total + " Can not find \\n after Cached.; " + left},
        {Without(Without(all, "Swap"), "Cached"),
         "WRONG; " + total + " Can not find Cached.; " + left},
        {CutBehind(all, "Cached"), "WRONG; " + total + " Can not find \\n after Cached.; " + left},
        {Without(Without(all, "ShmemH"), "Shmem:"),
         "WRONG; " + total + " Can not find Cached.; " + left},
        {CutBehind(all, "Shmem:"), "WRONG; " + total + " Can not find \\n after Cached.; " + left},
        {x + all, "WRONG; " + x.substr(0, 40959) + " Can not find MemTotal.; memory 0 0"},
    };
    Boot();
    for (const auto& c : cases) {
        std::string seen = c.seen;
        if (seen[0] != 'm') {
            const std::string status = seen[0] == 'W' ? "-281" : "-3353";
            seen.insert(seen.find("; memory"), "; GetMemoryInfo failed, ret: " + status + ".");
        }
        const auto get = [&] { return m->GetMemoryMonitorInfo(&out.memory, log); };
        EXPECT_EQ(After(get, KernelFiles{{"/proc/meminfo", c.text}}), seen);
    }
}

TEST_F(Memory, OfAProcess) {
    const std::string size = "VmSize:\t  204800 kB";
    const std::string sscanf_failed = "FAILED; sscanf failed, file: /proc/17/status, buf: ";
    const struct {
        std::string text;
        std::string seen;
    } cases[] = {
        {"Name:\tsrv\n" + size + "\nVmLck:\t0 kB\nVmRSS:\t 10241 kB\n", "process memory 10 200"},
        {"Name:\tkthreadd\n", "WRONG; Name:\tkthreadd\n Can not find VmSize.; process memory 0 0"},
        {size, "WRONG; " + size + " Can not find \\n after VmSize.; process memory 0 0"},
        {size + "\n", "WRONG; " + size + " Can not find VmRSS.; process memory 0 204800"},
        {size + "\nVmRSS: 3 kB",
         "WRONG; " + size + " Can not find \\n after VmRSS.; process memory 0 204800"},
        {size + "\nVmRSS: kB\n", sscanf_failed + size + ".; process memory 0 204800"},
        // A process chooses its own name, and the name's line comes first.
        {"Name:\tVmSize\n" + size + "\n", sscanf_failed + "Name:\tVmSize.; process memory 0 0"},
        {"Name:\tVmSize 7168\n" + size + "\nVmRSS: 3072 kB\n", "process memory 3 7"},
    };
    Boot();
    for (const auto& c : cases) {
        kernel.Write("/proc/17/status", c.text);
        EXPECT_EQ(See([&] { return inside->GetProcessMemoryInfo(&out.process_memory, PID, log); }),
                  c.seen);
    }
    const auto get = [&] { return m->GetProcessMemoryMonitorInfo(&out.process_memory, PID, log); };
    EXPECT_EQ(See(get), "process memory 3 7");
    kernel.Fail(KernelCall::Open, 1, ESRCH);  // it ended since it was looked for
    EXPECT_EQ(
        See(get),
        "FAILED; fopen /proc/17/status failed, error_msg: No such process.; ReadFromFile failed, "
        "file: /proc/17/status.; GetProcessMemoryInfo failed, ret: -3353.; process memory 0 0");
}

}  // namespace
}  // namespace corvane_test
