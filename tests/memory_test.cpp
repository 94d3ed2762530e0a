// Memory of the machine and of a process.
#include <cerrno>

#include "host.h"

namespace corvane_test {
namespace {

using Memory = HostTest;

KernelFiles Meminfo(const std::string& text) {
    return {{"/proc/meminfo", text}};
}

TEST_F(Memory, OfTheMachine) {
    const std::string total = "MemTotal:  1000000 kB";
    const std::string free = total + "\nMemFree:  200000 kB\nMemAvailable: 500000 kB\n";
    const std::string cached = free + "Buffers: 50000 kB\nCached:  300000 kB\n";
    const std::string all = cached + "SwapCached: 7 kB\nShmem: 10000 kB\nShmemHugePages: 9 kB\n";
    const std::string sscanf_failed = "FAILED; sscanf failed, file: /proc/meminfo, buf: ";
    const std::string x(50000, 'x');
    const auto wrong = [&](const std::string& what) {
        return "WRONG; " + total + " Can not find " + what + ".; memory 1000000 0";
    };
    Boot();
    Replay(
        [&] { return inside->GetMemoryInfo(&out.memory, log); },
        {{Meminfo(all), "memory 976 449"},  // shared memory is in use
         {Meminfo("MemTotal: 1023\nMemFree: 0\nBuffers:\t0 kB\nCached: 0\nShmem: 0\n"),
          "memory 0 0"},
         // More free than there is: the difference wraps.
         {Meminfo("MemTotal: 0 k\nMemFree: 1024 k\nBuffers: 0\nCached: 0\nShmem: 0\n"),
          "memory 0 18014398509481983"},
         // More digits than 64 bits hold read as the largest number.
         {Meminfo("MemTotal: 99999999999999999999\nMemFree: 1\nBuffers: 0\nCached: 0\nShmem: 0\n"),
          "memory 18014398509481983 18014398509481983"},
         {Meminfo(""), "WRONG;  Can not find MemTotal.; memory 0 0"},
         {Meminfo(total), "WRONG; " + total + " Can not find \\n after MemTotal.; memory 0 0"},
         {Meminfo("MemTotal: none\n"), sscanf_failed + "MemTotal: none.; memory 0 0"},
         {Meminfo("MemTotal:1 kB\n"), sscanf_failed + "MemTotal:1 kB.; memory 0 0"},
         {Meminfo(total + "\nBuffers: 1 kB\n"), wrong("MemFree")},
         {Meminfo(total + "\nMemFree: 1 kB"), wrong("\\n after MemFree")},
         {Meminfo(total + "\nMemFree: - kB\n"), sscanf_failed + total + ".; memory 1000000 0"},
         {Meminfo(free), wrong("Cached")},
         {Meminfo(free + "Buffers: 1 kB"), wrong("\\n after Cached")},
         {Meminfo(free + "Buffers: 1 kB\nShmem: 1 kB\n"), wrong("Cached")},
         {Meminfo(free + "Buffers: 1 kB\nCached: 1 kB"), wrong("\\n after Cached")},
         {Meminfo(cached), wrong("Cached")},
         {Meminfo(cached + "Shmem: 1 kB"), wrong("\\n after Cached")},
         {Meminfo(x), "WRONG; " + x.substr(0, 40959) + " Can not find MemTotal.; memory 0 0"}});
    EXPECT_EQ(AFTER(Meminfo("\n"), m->GetMemoryMonitorInfo(&out.memory, log)),
              "WRONG; \n Can not find MemTotal.; GetMemoryInfo failed, ret: -281.; memory 0 0");
}

TEST_F(Memory, OfAProcess) {
    const std::string size = "VmSize:\t  204800 kB";
    const std::string wrong = "WRONG; " + size + " Can not find ";
    const std::string sscanf_failed = "FAILED; sscanf failed, file: /proc/1/status, buf: ";
    const auto status = [](const std::string& text) {
        return KernelFiles{{"/proc/1/status", text}};
    };
    Boot();
    Replay([&] { return inside->GetProcessMemoryInfo(&out.process_memory, PID, log); },
           {{status("Name:\tsrv\n" + size + "\nVmRSS:\t 10241 kB\n"), "process memory 10 200"},
            {status("Name:\tk\n"), "WRONG; Name:\tk\n Can not find VmSize.; process memory 0 0"},
            {status(size), wrong + "\\n after VmSize.; process memory 0 0"},
            {status(size + "\n"), wrong + "VmRSS.; process memory 0 204800"},
            {status(size + "\nVmRSS: 3"), wrong + "\\n after VmRSS.; process memory 0 204800"},
            {status(size + "\nVmRSS: kB\n"), sscanf_failed + size + ".; process memory 0 204800"},
            // A process chooses its own name, and the name's line comes first.
            {status("Name:\tVmSize 7168\n" + size + "\nVmRSS: 3072\n"), "process memory 3 7"}});
    kernel.Fail(KernelCall::Open, 1, ESRCH);  // it ended since it was looked for
    EXPECT_EQ(SEE(m->GetProcessMemoryMonitorInfo(&out.process_memory, PID, log)),
              "FAILED; fopen /proc/1/status failed, error_msg: No such process.; ReadFromFile "
              "failed, file: /proc/1/status.; GetProcessMemoryInfo failed, ret: -3353.; process "
              "memory 0 0");
}

}  // namespace
}  // namespace corvane_test
