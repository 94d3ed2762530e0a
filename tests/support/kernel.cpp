#include "kernel.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <utility>

namespace corvane_test {

namespace {

Kernel* the_kernel = nullptr;  // none: calls go to libc
std::mutex the_mutex;
std::condition_variable released;
thread_local int calls_under_way = 0;

/// libc's own function, or the sanitizer's, behind the one of this program.
template <typename Function>
Function* Real(Function* /*of_this_program*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <typename Result>
Result Failed(int error_number, Result result) {
    errno = error_number;
    return result;
}

bool IsAtOrBelow(std::string_view path, std::string_view folder) {
    return folder == "/" || (path.substr(0, folder.size()) == folder &&
                             (path.size() == folder.size() || path[folder.size()] == '/'));
}

/// The deepest entry at or above the path; zeros when there is none.
template <typename Value>
Value Deepest(const std::map<std::string, Value>& values, std::string_view path) {
    const auto found = std::find_if(values.rbegin(), values.rend(), [&](const auto& entry) {
        return IsAtOrBelow(path, entry.first);
    });
    return found == values.rend() ? Value() : found->second;
}

/// A call that took libc's place, while it runs.
class Call {
public:
    explicit Call(const char* path = "") : m_lock(the_mutex), kernel(the_kernel) {
        ++calls_under_way;
        if (kernel == nullptr) {
            m_lock.unlock();
            return;
        }
        // The kernel may end meanwhile: what hung in it goes on in the one that is there then.
        released.wait(m_lock, [&] {
            kernel = the_kernel;
            return kernel == nullptr || kernel->hanging.empty() ||
                   !IsAtOrBelow(path, kernel->hanging);
        });
        if (kernel == nullptr) {
            m_lock.unlock();
        }
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call() { --calls_under_way; }

    /// Counts the call; true, with errno set, when it is the one to fail.
    bool Fails(KernelCall call) const {
        const auto kind = static_cast<size_t>(call);
        ++kernel->counts[kind];
        Kernel::Fault& fault = kernel->faults[kind];
        return fault.countdown > 0 && --fault.countdown == 0 && Failed(fault.error_number, true);
    }

    const Kernel::Node* Find(std::string_view path) const {
        const auto found = kernel->nodes.find(path);
        return found == kernel->nodes.end() ? nullptr : &found->second;
    }

    /// Calls `visit` with each path below a folder, until it says false.
    template <typename Visit>
    void ForEachBelow(const std::string& folder, const Visit& visit) const {
        const std::string start = folder == "/" ? folder : folder + '/';
        auto node = kernel->nodes.lower_bound(start);
        while (node != kernel->nodes.end() && node->first.compare(0, start.size(), start) == 0 &&
               visit(node->first.substr(start.size()))) {
            ++node;
        }
    }

    bool IsFolder(const std::string& path) const {
        const Kernel::Node* const node = Find(path);
        bool is_folder = path == "/" || (node != nullptr && node->kind == Kernel::Folder);
        ForEachBelow(path, [&](const std::string&) { return !(is_folder = true); });
        return is_folder;
    }

    /// The path without links, dots and doubled slashes; empty, with errno set, when there is none
    /// or the call is to fail.
    std::string Resolve(KernelCall call, const char* path, bool through_last_link = true) const {
        constexpr int MAX_LINKS = 40;
        const Kernel::Node* const file = Find(path);
        const bool fails = Fails(call);
        if (fails || (file != nullptr && file->kind == Kernel::File)) {
            return fails ? "" : path;  // nearly always the path
        }
        std::string done;
        std::string rest = path;
        for (int links = 0; !rest.empty();) {
            const std::string name = rest.substr(0, rest.find('/'));
            rest.erase(0, name.size() + 1);
            const std::string next = done + '/' + name;
            const Kernel::Node* const node = Find(next);
            if (name == "..") {
                done.erase(std::min(done.rfind('/'), done.size()));
            } else if (name.empty() || name == ".") {
                continue;
            } else if (node != nullptr && node->kind == Kernel::Link &&
                       (through_last_link || !rest.empty())) {
                if (++links > MAX_LINKS) {
                    return Failed(ELOOP, "");
                }
                done = node->text->front() == '/' ? "" : done;
                rest = *node->text + '/' + rest;
            } else if (node == nullptr && !IsFolder(next)) {
                return Failed(ENOENT, "");
            } else {
                done = next;
            }
        }
        return done.empty() ? "/" : done;
    }

    FILE* Open(const char* path, bool with_descriptor) const;

private:
    std::unique_lock<std::mutex> m_lock;

public:
    Kernel* kernel;
};

/// A stream over the text as it was when it was opened.
struct OpenFile {
    std::shared_ptr<const std::string> text;
    size_t length;
    int error_number;  // behind the text; 0: its end
    size_t position = 0;
};

ssize_t ReadOpenFile(void* cookie, char* buffer, size_t size) {
    auto* const file = static_cast<OpenFile*>(cookie);
    const size_t count = std::min(size, file->length - file->position);
    if (count == 0 && file->error_number != 0) {
        return Failed(file->error_number, ssize_t{-1});
    }
    memcpy(buffer, file->text->data() + file->position, count);
    file->position += count;
    return static_cast<ssize_t>(count);
}

int CloseOpenFile(void* cookie) {
    const Call call;
    delete static_cast<OpenFile*>(cookie);
    if (call.kernel != nullptr) {
        --call.kernel->open;
    }
    return 0;
}

/// The standard file streams read past the FILE, by its descriptor: that takes a real one. A file
/// whose reads fail is a folder.
int MakeDescriptor(const OpenFile& file) {
    if (file.error_number != 0) {
        return open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    const int descriptor = memfd_create("kernel", MFD_CLOEXEC);
    if (pwrite(descriptor, file.text->data(), file.length, 0) !=
        static_cast<ssize_t>(file.length)) {
        abort();
    }
    return descriptor;
}

FILE* Call::Open(const char* path, bool with_descriptor) const {
    const std::string resolved = Resolve(KernelCall::Open, path);
    if (resolved.empty()) {
        return nullptr;
    }
    const Kernel::Node* const node = Find(resolved);
    OpenFile file = {std::make_shared<std::string>(), 0, EISDIR};
    if (node != nullptr && node->kind == Kernel::File) {
        file = {node->text, node->text->size(), 0};
    }
    if (Fails(KernelCall::Read)) {
        const Kernel::Fault& fault = kernel->faults[static_cast<size_t>(KernelCall::Read)];
        file.error_number = fault.error_number;
        file.length = std::min(file.length, fault.bytes_before);
    }
    if (with_descriptor) {
        return fdopen(*kernel->descriptors.insert(MakeDescriptor(file)).first, "r");
    }
    cookie_io_functions_t functions = {};
    functions.read = ReadOpenFile;
    functions.close = CloseOpenFile;
    ++kernel->open;
    return fopencookie(new OpenFile(file), "r", functions);
}

/// Whether the standard file streams made a call.
bool AreStreams(const void* caller) {
    Dl_info of_caller = {};
    return dladdr(caller, &of_caller) != 0 && strstr(of_caller.dli_fname, "libstdc++") != nullptr;
}

/// A walk through a folder; passes for the C library's.
struct OpenFolder {
    std::set<std::string> names = {".", ".."};
    dirent entry = {};
};

}  // namespace

bool InKernelCall() {
    return calls_under_way > 0;
}

Kernel::Kernel() {
    const std::lock_guard<std::mutex> lock(the_mutex);
    the_kernel = this;
}

Kernel::~Kernel() {
    monotonic_us = 0;
    const std::lock_guard<std::mutex> lock(the_mutex);
    the_kernel = nullptr;
    released.notify_all();
}

void Kernel::Put(const std::string& path, Kind kind, std::string_view text) {
    const std::lock_guard<std::mutex> lock(the_mutex);
    nodes[path] = {kind, std::make_shared<const std::string>(text)};
}

void Kernel::Write(const KernelFiles& files) {
    for (const auto& [path, text] : files) {
        Write(path, text);
    }
}

void Kernel::Remove(const std::string& path) {
    const std::lock_guard<std::mutex> lock(the_mutex);
    for (auto node = nodes.lower_bound(path); node != nodes.end();) {
        node = IsAtOrBelow(node->first, path) ? nodes.erase(node) : std::next(node);
    }
}

void Kernel::Fail(KernelCall call, int nth, int error_number, size_t bytes_before) {
    faults[static_cast<size_t>(call)] = {nth, error_number, bytes_before};
}

void Kernel::Hang(const std::string& path) {
    const std::lock_guard<std::mutex> lock(the_mutex);
    hanging = path;
    released.notify_all();
}

int Kernel::CountOpen() {
    for (auto i = descriptors.begin(); i != descriptors.end();) {
        i = fcntl(*i, F_GETFD) == -1 ? descriptors.erase(i) : std::next(i);
    }
    return open + static_cast<int>(descriptors.size());
}

}  // namespace corvane_test

using namespace corvane_test;  // NOLINT(google-build-using-namespace): this file's own

// libc's functions, for this program and the libraries that it loads.
extern "C" {

FILE* fopen(const char* path, const char* mode) {
    const bool by_streams = AreStreams(__builtin_return_address(0));
    const Call call(path);
    return call.kernel == nullptr || mode[0] != 'r' ? Real(&fopen, "fopen")(path, mode)
                                                    : call.Open(path, by_streams);
}

// Where the standard file streams of older libraries open.
FILE* fopen64(const char* path, const char* mode) {
    const Call call(path);
    return call.kernel == nullptr || mode[0] != 'r' ? Real(&fopen64, "fopen64")(path, mode)
                                                    : call.Open(path, true);
}

// The monitor reads unbuffered; libc reads a stream of this kind byte by byte then.
int setvbuf(FILE* stream, char* buffer, int mode, size_t size) noexcept {
    return the_kernel == nullptr ? Real(&setvbuf, "setvbuf")(stream, buffer, mode, size) : 0;
}

DIR* opendir(const char* path) {
    const Call call(path);
    if (call.kernel == nullptr) {
        return Real(&opendir, "opendir")(path);
    }
    const std::string resolved = call.Resolve(KernelCall::OpenDir, path);
    if (resolved.empty() || !call.IsFolder(resolved)) {
        return resolved.empty() ? nullptr : Failed<DIR*>(ENOTDIR, nullptr);
    }
    auto* const folder = new OpenFolder;
    call.ForEachBelow(resolved, [&](const std::string& below) {
        return folder->names.insert(below.substr(0, below.find('/'))), true;
    });
    ++call.kernel->open;
    return reinterpret_cast<DIR*>(folder);
}

dirent* readdir(DIR* dir) {
    const Call call;
    if (call.kernel == nullptr) {
        return Real(&readdir, "readdir")(dir);
    }
    auto* const folder = reinterpret_cast<OpenFolder*>(dir);
    if (folder->names.empty()) {
        return nullptr;
    }
    const std::string name = folder->names.extract(folder->names.begin()).value();
    folder->entry.d_name[name.copy(folder->entry.d_name, NAME_MAX)] = '\0';
    return &folder->entry;
}

int closedir(DIR* dir) {
    const Call call;
    if (call.kernel == nullptr) {
        return Real(&closedir, "closedir")(dir);
    }
    --call.kernel->open;
    delete reinterpret_cast<OpenFolder*>(dir);
    return 0;
}

int access(const char* path, int mode) noexcept {
    const Call call(path);
    return call.kernel == nullptr                           ? Real(&access, "access")(path, mode)
           : call.Resolve(KernelCall::Access, path).empty() ? -1
                                                            : 0;
}

int stat(const char* path, struct stat* status) noexcept {
    const Call call(path);
    if (call.kernel == nullptr) {
        return Real(static_cast<int (*)(const char*, struct stat*)>(&stat), "stat")(path, status);
    }
    const std::string resolved = call.Resolve(KernelCall::Stat, path);
    *status = Deepest(call.kernel->status, resolved);
    if (status->st_mode == 0) {
        status->st_mode = call.IsFolder(resolved) ? S_IFDIR | 0755U : S_IFREG | 0644U;
    }
    return resolved.empty() ? -1 : 0;
}

int statvfs(const char* path, struct statvfs* space) noexcept {
    const Call call(path);
    if (call.kernel == nullptr) {
        return Real(&statvfs, "statvfs")(path, space);
    }
    const std::string resolved = call.Resolve(KernelCall::Stat, path);
    *space = Deepest(call.kernel->space, resolved);
    return resolved.empty() ? -1 : 0;
}

char* realpath(const char* path, char* buffer) noexcept {
    const Call call(path);
    if (call.kernel == nullptr) {
        return Real(&realpath, "realpath")(path, buffer);
    }
    const std::string resolved = call.Resolve(KernelCall::RealPath, path);
    if (resolved.empty() || resolved.size() >= PATH_MAX) {
        return resolved.empty() ? nullptr : Failed<char*>(ENAMETOOLONG, nullptr);
    }
    return buffer == nullptr ? strdup(resolved.c_str()) : strcpy(buffer, resolved.c_str());
}

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    const Call call(path);
    if (call.kernel == nullptr) {
        return Real(&readlink, "readlink")(path, buffer, size);
    }
    const std::string resolved = call.Resolve(KernelCall::ReadLink, path, false);
    const Kernel::Node* const node = call.Find(resolved);
    return resolved.empty() ? -1
           : node == nullptr || node->kind != Kernel::Link
               ? Failed(EINVAL, ssize_t{-1})
               : static_cast<ssize_t>(node->text->copy(buffer, size));
}

int gettimeofday(struct timeval* time, void* zone) noexcept {
    const Call call;
    if (call.kernel == nullptr) {
        return Real(&gettimeofday, "gettimeofday")(time, zone);
    }
    int64_t& now = call.kernel->clock_us;
    *time = {now / 1000000, now % 1000000};
    now += call.kernel->clock_step_us;
    return 0;
}

int clock_gettime(clockid_t clock, struct timespec* time) noexcept {
    static auto* const real = Real(&clock_gettime, "clock_gettime");
    const int64_t now = Kernel::monotonic_us;
    if (clock != CLOCK_MONOTONIC || now == 0) {
        return real(clock, time);
    }
    *time = {now / 1000000, now % 1000000 * 1000};
    return 0;
}
// Of this program alone: what waits in the libraries goes on with the real one.
asm(".hidden clock_gettime");

}  // extern "C"
