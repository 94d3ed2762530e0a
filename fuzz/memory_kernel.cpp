#include "memory_kernel.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace corvane_fuzz {

namespace {

MemoryKernel* the_kernel = nullptr;  // none: calls go to libc

template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

template <typename Result>
Result Fail(int error_number, Result result) {
    errno = error_number;
    return result;
}

/// A stream over the text as it was when it was opened.
struct OpenFile {
    MemoryKernel::File file;
    size_t position = 0;
};

ssize_t ReadOpenFile(void* cookie, char* buffer, size_t size) {
    auto* const open_file = static_cast<OpenFile*>(cookie);
    const std::string& text = open_file->file.text;
    const size_t count = std::min(size, text.size() - open_file->position);
    if (count == 0 && open_file->file.fails) {
        return Fail(EIO, ssize_t{-1});
    }
    memcpy(buffer, text.data() + open_file->position, count);
    open_file->position += count;
    return static_cast<ssize_t>(count);
}

int CloseOpenFile(void* cookie) {
    delete static_cast<OpenFile*>(cookie);
    if (the_kernel != nullptr) {
        the_kernel->CountClosed();
    }
    return 0;
}

FILE* OpenCookie(const MemoryKernel::File& file) {
    cookie_io_functions_t functions = {};
    functions.read = ReadOpenFile;
    functions.close = CloseOpenFile;
    the_kernel->CountOpened();
    return fopencookie(new OpenFile{file}, "r", functions);
}

/// The standard file streams read past the FILE, by its descriptor: that takes a real one. A file
/// whose reads fail is a folder.
FILE* OpenDescriptor(const MemoryKernel::File& file) {
    int descriptor = -1;
    if (file.fails) {
        descriptor = open("/", O_RDONLY | O_DIRECTORY);
    } else {
        descriptor = memfd_create("kernel", 0);
        const auto size = static_cast<ssize_t>(file.text.size());
        if (pwrite(descriptor, file.text.data(), file.text.size(), 0) != size) {
            abort();
        }
    }
    the_kernel->WatchDescriptor(descriptor);
    return fdopen(descriptor, "r");
}

/// A walk through a folder; passes for the C library's.
class OpenFolder {
public:
    explicit OpenFolder(const char* path) : m_path(path) {}

    dirent* Next() {
        std::string name(m_dots, '.');
        if (m_dots > 0) {
            --m_dots;
        } else {
            name = the_kernel->NextEntry(m_path, m_last);
            m_last = name;
        }
        snprintf(m_entry.d_name, sizeof(m_entry.d_name), "%s", name.c_str());
        return name.empty() ? nullptr : &m_entry;
    }

private:
    std::string m_path;
    std::string m_last;
    size_t m_dots = 2;  // ".." and "." come first
    dirent m_entry = {};
};

bool IsReading(const char* mode) {
    return the_kernel != nullptr && mode[0] == 'r';  // what a fuzzer writes goes to the disk
}

}  // namespace

MemoryKernel::MemoryKernel() {
    the_kernel = this;
}

MemoryKernel::~MemoryKernel() {
    the_kernel = nullptr;
}

void MemoryKernel::Write(std::string_view path, std::string_view text) {
    const auto found = m_files.find(path);
    File& file = found == m_files.end() ? m_files[std::string(path)] : found->second;
    file.text = text;
    file.fails = false;
}

void MemoryKernel::Remove(std::string_view path) {
    const auto found = m_files.find(path);
    if (found != m_files.end()) {
        m_files.erase(found);
    }
}

void MemoryKernel::FailRead(std::string_view path, size_t bytes_before) {
    const auto found = m_files.find(path);
    if (found != m_files.end()) {
        found->second.fails = true;
        found->second.text.resize(std::min(found->second.text.size(), bytes_before));
    }
}

void MemoryKernel::WatchDescriptor(int descriptor) {
    m_descriptors[descriptor] = true;
}

int MemoryKernel::CountOpen() {
    int open = m_open;
    for (auto& [descriptor, watched] : m_descriptors) {
        watched = watched && fcntl(descriptor, F_GETFD) != -1;
        open += watched ? 1 : 0;
    }
    return open;
}

const MemoryKernel::File* MemoryKernel::Find(const char* path) const {
    const auto found = m_files.find(std::string_view(path));
    return found == m_files.end() ? nullptr : &found->second;
}

bool MemoryKernel::Exists(const char* path) const {
    const std::string_view name(path);
    if (name.substr(0, 6) != "/proc/") {
        return name.find("absent") == std::string_view::npos;
    }
    const auto found = m_files.lower_bound(name);
    return found != m_files.end() && found->first.compare(0, name.size(), name) == 0;
}

std::string MemoryKernel::NextEntry(const std::string& folder, const std::string& after) const {
    // '0' follows '/': this is the first path behind everything below the entry.
    const std::string start = after.empty() ? folder + '/' : folder + '/' + after + '0';
    const auto found = m_files.lower_bound(start);
    if (found == m_files.end() || found->first.compare(0, folder.size() + 1, folder + '/') != 0) {
        return {};
    }
    const std::string rest = found->first.substr(folder.size() + 1);
    return rest.substr(0, rest.find('/'));
}

}  // namespace corvane_fuzz

using corvane_fuzz::Fail;
using corvane_fuzz::Real;
using corvane_fuzz::the_kernel;

// libc's functions, for this program and the libraries that it loads.
extern "C" {

FILE* fopen(const char* path, const char* mode) {
    static const auto real = Real<decltype(&fopen)>("fopen");
    if (!corvane_fuzz::IsReading(mode)) {
        return real(path, mode);
    }
    const auto* const file = the_kernel->Find(path);
    return file == nullptr ? Fail<FILE*>(ENOENT, nullptr) : corvane_fuzz::OpenCookie(*file);
}

// Where the standard file streams open.
FILE* fopen64(const char* path, const char* mode) {
    static const auto real = Real<decltype(&fopen64)>("fopen64");
    if (!corvane_fuzz::IsReading(mode)) {
        return real(path, mode);
    }
    const auto* const file = the_kernel->Find(path);
    return file == nullptr ? Fail<FILE*>(ENOENT, nullptr) : corvane_fuzz::OpenDescriptor(*file);
}

// The monitor reads unbuffered; libc reads a stream of this kind byte by byte then.
int setvbuf(FILE* stream, char* buffer, int mode, size_t size) {
    static const auto real = Real<decltype(&setvbuf)>("setvbuf");
    return the_kernel == nullptr ? real(stream, buffer, mode, size) : 0;
}

DIR* opendir(const char* path) {
    static const auto real = Real<decltype(&opendir)>("opendir");
    if (the_kernel == nullptr) {
        return real(path);
    }
    if (the_kernel->NextEntry(path, "").empty()) {
        return Fail<DIR*>(ENOENT, nullptr);
    }
    the_kernel->CountOpened();
    return reinterpret_cast<DIR*>(new corvane_fuzz::OpenFolder(path));
}

dirent* readdir(DIR* dir) {
    static const auto real = Real<decltype(&readdir)>("readdir");
    return the_kernel == nullptr ? real(dir)
                                 : reinterpret_cast<corvane_fuzz::OpenFolder*>(dir)->Next();
}

int closedir(DIR* dir) {
    static const auto real = Real<decltype(&closedir)>("closedir");
    if (the_kernel == nullptr) {
        return real(dir);
    }
    delete reinterpret_cast<corvane_fuzz::OpenFolder*>(dir);
    the_kernel->CountClosed();
    return 0;
}

int access(const char* path, int mode) noexcept {
    static const auto real = Real<int (*)(const char*, int)>("access");
    if (the_kernel == nullptr) {
        return real(path, mode);
    }
    return the_kernel->Exists(path) ? 0 : Fail(ENOENT, -1);
}

int stat(const char* path, struct stat* status) noexcept {
    static const auto real = Real<int (*)(const char*, struct stat*)>("stat");
    if (the_kernel == nullptr) {
        return real(path, status);
    }
    *status = {};
    return the_kernel->Exists(path) ? 0 : Fail(ENOENT, -1);
}

char* realpath(const char* path, char* resolved) noexcept {
    static const auto real = Real<char* (*)(const char*, char*)>("realpath");
    if (the_kernel == nullptr) {
        return real(path, resolved);
    }
    if (!the_kernel->Exists(path) || strlen(path) + 1 >= PATH_MAX) {
        return Fail<char*>(ENAMETOOLONG, nullptr);
    }
    snprintf(resolved, PATH_MAX, "%s%s", path[0] == '/' ? "" : "/", path);
    return resolved;
}

ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
    static const auto real = Real<ssize_t (*)(const char*, char*, size_t)>("readlink");
    if (the_kernel == nullptr) {
        return real(path, buffer, size);
    }
    const std::string& target = the_kernel->LinkTarget();
    return target.empty() ? Fail(EINVAL, ssize_t{-1})
                          : static_cast<ssize_t>(target.copy(buffer, size));
}

}  // extern "C"
