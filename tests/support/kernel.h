// A kernel of the test's own, in memory.
//
// While a Kernel lives, the calls by which the monitor reaches its kernel are answered from what is
// written into it: fopen for reading and the standard file streams, opendir with its walk, access,
// stat, statvfs, realpath, readlink, gettimeofday and CLOCK_MONOTONIC. What is not written does not
// exist; folders exist through what is below them; relative paths start at the root. Single calls
// can be counted and made to fail, and a path can be made to hang. One Kernel lives at a time,
// whose calls may come from several threads.
#pragma once

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace corvane_test {

/// Texts by absolute path.
using KernelFiles = std::map<std::string, std::string>;

/// The calls that can be counted and made to fail. A read is one of a whole file.
enum class KernelCall { Open, Read, OpenDir, Access, Stat, RealPath, ReadLink };
constexpr KernelCall ALL_KERNEL_CALLS[] = {
    KernelCall::Open, KernelCall::Read,     KernelCall::OpenDir, KernelCall::Access,
    KernelCall::Stat, KernelCall::RealPath, KernelCall::ReadLink};

/// Whether one of the functions that take libc's place is running: what it allocates is the test's.
bool InKernelCall();

class Kernel {
public:
    Kernel();
    explicit Kernel(const KernelFiles& files) : Kernel() { Write(files); }
    Kernel(const Kernel&) = delete;
    Kernel& operator=(const Kernel&) = delete;
    ~Kernel();

    /// Writes or replaces texts; what was open keeps the old one.
    void Write(const KernelFiles& files);
    void Write(const std::string& path, std::string_view text) { Put(path, File, text); }
    void MakeFolder(const std::string& path) { Put(path, Folder, ""); }
    /// The target may be relative to the link's folder, and need not exist.
    void MakeLink(const std::string& path, std::string_view target) { Put(path, Link, target); }
    /// Removes a path with all below it.
    void Remove(const std::string& path);

    /// Makes the n-th call of a kind from now on (1: the next) fail with an error number. A read
    /// that fails does so after `bytes_before` bytes of its file; a standard file stream's at once.
    void Fail(KernelCall call, int nth, int error_number, size_t bytes_before = 0);
    /// No call fails any more.
    void Heal() { faults = {}; }
    /// Calls with the path, or one below it, do not return until another one hangs, or none ("").
    void Hang(const std::string& path);

    /// Calls of a kind since construction or the last ResetCounts.
    int Count(KernelCall call) const { return counts[static_cast<size_t>(call)]; }
    void ResetCounts() { counts = {}; }
    /// Streams and folders that were opened and not closed.
    int CountOpen();

    int64_t clock_us = 1999999;  ///< what gettimeofday says
    int64_t clock_step_us = 0;   ///< what each look at the clock adds to it
    /// What CLOCK_MONOTONIC says; 0: the machine's own. Outside of the instance: the clock is asked
    /// in signal handlers, too, and must wait for nobody.
    inline static std::atomic<int64_t> monotonic_us = 0;
    /// What stat and statvfs say of a path and of all below it; a mode of 0 is what the path is.
    std::map<std::string, struct stat> status;
    std::map<std::string, struct statvfs> space;

    // ---- For the functions that take libc's place ----

    enum Kind { File, Folder, Link };
    struct Node {
        Kind kind;
        std::shared_ptr<const std::string> text;  // of a file; a link's target
    };
    struct Fault {
        int countdown = 0;  // 0: none; 1: the next call
        int error_number = 0;
        size_t bytes_before = 0;
    };
    std::map<std::string, Node, std::less<>> nodes;
    std::array<Fault, std::size(ALL_KERNEL_CALLS)> faults;
    std::array<int, std::size(ALL_KERNEL_CALLS)> counts{};
    std::string hanging;
    std::set<int> descriptors;  // handed out to standard file streams
    int open = 0;

private:
    void Put(const std::string& path, Kind kind, std::string_view text);
};

}  // namespace corvane_test
