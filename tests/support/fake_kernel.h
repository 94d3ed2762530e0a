// A kernel of the test's own: a folder that stands for the root of the file system.
//
// While a FakeKernel lives, absolute paths that reach fopen, opendir, access, stat, realpath and
// readlink are looked up below its folder, so the monitor reads /proc/stat from there without
// knowing. What a test does not write does not exist. Single calls can be counted and made to fail.
#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace corvane_test {

/// Texts by absolute path.
using KernelFiles = std::map<std::string, std::string>;

/// The calls that can be counted and made to fail.
enum class KernelCall { Open, Read, OpenDir, Access, Stat, RealPath, ReadLink };
constexpr KernelCall ALL_KERNEL_CALLS[] = {
    KernelCall::Open, KernelCall::Read,     KernelCall::OpenDir, KernelCall::Access,
    KernelCall::Stat, KernelCall::RealPath, KernelCall::ReadLink};

/// Whether one of the functions that take libc's place is running: what it allocates is the test's.
bool InKernelCall();

class FakeKernel {
public:
    FakeKernel();
    explicit FakeKernel(const KernelFiles& files);
    FakeKernel(const FakeKernel&) = delete;
    FakeKernel& operator=(const FakeKernel&) = delete;
    ~FakeKernel();

    /// Writes or replaces texts; folders are made as needed.
    void Write(const KernelFiles& files);
    void Write(const std::string& path, const std::string& text);
    void MakeFolder(const std::string& path);
    void MakeLink(const std::string& path, const std::string& target);
    void Remove(const std::string& path);

    /// Makes the n-th call of a kind from now on (1: the next) fail with an error number.
    /// A read that fails does so after `bytes_before` bytes of its file.
    void Fail(KernelCall call, int nth, int error_number, size_t bytes_before = 0);
    /// No call fails any more.
    void Heal();

    /// Calls of a kind since construction or the last ResetCounts.
    int Count(KernelCall call) const;
    void ResetCounts();

private:
    std::string m_root;
};

}  // namespace corvane_test
