#include "fake_kernel.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace corvane_test {

namespace {

constexpr size_t CALL_KINDS = std::size(ALL_KERNEL_CALLS);

struct Fault {
    int countdown = 0;  // 0: none; 1: the next call
    int error_number = 0;
    size_t bytes_before = 0;
};

// Reached from the functions that take libc's place, so it cannot be a member.
struct State {
    std::string root;  // empty: no fake kernel
    std::array<Fault, CALL_KINDS> faults;
    std::array<int, CALL_KINDS> counts{};
    int calls_under_way = 0;
};

State& TheState() {
    static State state;
    return state;
}

/// One function that took libc's place, while it runs.
class CallScope {
public:
    CallScope() { ++TheState().calls_under_way; }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;
    ~CallScope() { --TheState().calls_under_way; }
};

/// Counts the call; true, with errno set, when it is the one to fail.
bool CallFails(KernelCall call) {
    State& state = TheState();
    if (state.root.empty()) {
        return false;
    }
    const auto kind = static_cast<size_t>(call);
    ++state.counts[kind];
    Fault& fault = state.faults[kind];
    if (fault.countdown == 0 || --fault.countdown > 0) {
        return false;
    }
    errno = fault.error_number;
    return true;
}

bool IsBelow(const std::string& root, const char* path) {
    return strncmp(path, root.c_str(), root.size()) == 0;
}

std::string Translate(const char* path) {
    const std::string& root = TheState().root;
    if (root.empty() || path == nullptr || path[0] != '/' || IsBelow(root, path)) {
        return path == nullptr ? "" : path;
    }
    return root + path;
}

template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

using OpenFunction = FILE* (*)(const char*, const char*);

/// A stream that delivers the start of a file and then an error.
struct FailingFile {
    FILE* stream;
    size_t bytes_left;
    int error_number;
};

ssize_t ReadFailingFile(void* cookie, char* buffer, size_t size) {
    auto* const file = static_cast<FailingFile*>(cookie);
    if (file->bytes_left == 0) {
        errno = file->error_number;
        return -1;
    }
    const size_t count = fread(buffer, 1, std::min(size, file->bytes_left), file->stream);
    file->bytes_left = count == 0 ? 0 : file->bytes_left - count;
    return count == 0 ? ReadFailingFile(cookie, buffer, size) : static_cast<ssize_t>(count);
}

int CloseFailingFile(void* cookie) {
    const std::unique_ptr<FailingFile> file(static_cast<FailingFile*>(cookie));
    return fclose(file->stream);
}

FILE* Open(const char* symbol, const char* path, const char* mode) {
    const CallScope scope;
    const auto real = Real<OpenFunction>(symbol);
    if (TheState().root.empty()) {
        return real(path, mode);
    }
    if (CallFails(KernelCall::Open)) {
        return nullptr;
    }
    FILE* const stream = real(Translate(path).c_str(), mode);
    if (stream == nullptr || !CallFails(KernelCall::Read)) {
        return stream;
    }
    const Fault& fault = TheState().faults[static_cast<size_t>(KernelCall::Read)];
    auto* const file = new FailingFile{stream, fault.bytes_before, fault.error_number};
    cookie_io_functions_t functions = {};
    functions.read = ReadFailingFile;
    functions.close = CloseFailingFile;
    return fopencookie(file, "r", functions);
}

/// Memory where there is some: a disk may be waited for at each text that is written anew.
std::filesystem::path FolderOfKernels() {
    const std::filesystem::path memory = "/dev/shm";
    return Real<int (*)(const char*, int)>("access")(memory.c_str(), W_OK) == 0
               ? memory
               : std::filesystem::temp_directory_path();
}

}  // namespace

bool InKernelCall() {
    return TheState().calls_under_way > 0;
}

FakeKernel::FakeKernel() {
    std::string pattern = FolderOfKernels() / "corvane-kernel-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no temporary folder for the fake kernel");
    }
    m_root = std::filesystem::canonical(pattern);
    TheState() = State();
    TheState().root = m_root;
}

FakeKernel::FakeKernel(const KernelFiles& files) : FakeKernel() {
    Write(files);
}

FakeKernel::~FakeKernel() {
    TheState() = State();
    std::error_code ignored;
    std::filesystem::remove_all(m_root, ignored);
}

void FakeKernel::Write(const KernelFiles& files) {
    for (const auto& [path, text] : files) {
        Write(path, text);
    }
}

void FakeKernel::Write(const std::string& path, const std::string& text) {
    const std::string full_path = m_root + path;
    const auto real = Real<OpenFunction>("fopen");
    FILE* stream = real(full_path.c_str(), "w");
    if (stream == nullptr) {
        MakeFolder(std::filesystem::path(path).parent_path());
        stream = real(full_path.c_str(), "w");
    }
    if (stream == nullptr || fwrite(text.data(), 1, text.size(), stream) != text.size()) {
        throw std::runtime_error("cannot write " + full_path);
    }
    fclose(stream);
}

void FakeKernel::MakeFolder(const std::string& path) {
    std::filesystem::create_directories(m_root + path);
}

void FakeKernel::MakeLink(const std::string& path, const std::string& target) {
    MakeFolder(std::filesystem::path(path).parent_path());
    std::filesystem::create_symlink(target[0] == '/' ? m_root + target : target, m_root + path);
}

void FakeKernel::Remove(const std::string& path) {
    std::filesystem::remove_all(m_root + path);
}

void FakeKernel::Fail(KernelCall call, int nth, int error_number, size_t bytes_before) {
    TheState().faults[static_cast<size_t>(call)] = {nth, error_number, bytes_before};
}

void FakeKernel::Heal() {
    TheState().faults = {};
}

int FakeKernel::Count(KernelCall call) const {
    return TheState().counts[static_cast<size_t>(call)];
}

void FakeKernel::ResetCounts() {
    TheState().counts = {};
}

}  // namespace corvane_test

// libc's functions, for this program and the libraries that it loads. The standard file streams
// open through fopen64.
extern "C" {

FILE* fopen(const char* path, const char* mode) {
    return corvane_test::Open("fopen", path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
    return corvane_test::Open("fopen64", path, mode);
}

DIR* opendir(const char* path) {
    const corvane_test::CallScope scope;
    using corvane_test::KernelCall;
    if (corvane_test::CallFails(KernelCall::OpenDir)) {
        return nullptr;
    }
    return corvane_test::Real<DIR* (*)(const char*)>("opendir")(
        corvane_test::Translate(path).c_str());
}

int access(const char* path, int mode) noexcept {
    const corvane_test::CallScope scope;
    using corvane_test::KernelCall;
    if (corvane_test::CallFails(KernelCall::Access)) {
        return -1;
    }
    return corvane_test::Real<int (*)(const char*, int)>("access")(
        corvane_test::Translate(path).c_str(), mode);
}

int stat(const char* path, struct stat* status) noexcept {
    const corvane_test::CallScope scope;
    using corvane_test::KernelCall;
    if (corvane_test::CallFails(KernelCall::Stat)) {
        return -1;
    }
    return corvane_test::Real<int (*)(const char*, struct stat*)>("stat")(
        corvane_test::Translate(path).c_str(), status);
}

char* realpath(const char* path, char* resolved) noexcept {
    const corvane_test::CallScope scope;
    using corvane_test::KernelCall;
    if (corvane_test::CallFails(KernelCall::RealPath)) {
        return nullptr;
    }
    char* const result = corvane_test::Real<char* (*)(const char*, char*)>("realpath")(
        corvane_test::Translate(path).c_str(), resolved);
    const std::string& root = corvane_test::TheState().root;
    if (result != nullptr && !root.empty() && corvane_test::IsBelow(root, result)) {
        const size_t rest = strlen(result + root.size());
        memmove(result, result + root.size(), rest + 1);
        if (rest == 0) {
            strcpy(result, "/");
        }
    }
    return result;
}

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    const corvane_test::CallScope scope;
    using corvane_test::KernelCall;
    if (corvane_test::CallFails(KernelCall::ReadLink)) {
        return -1;
    }
    return corvane_test::Real<ssize_t (*)(const char*, char*, size_t)>("readlink")(
        corvane_test::Translate(path).c_str(), buffer, size);
}

}  // extern "C"
