// A kernel in memory: thousands of monitors a second need files that are no files.
//
// While a MemoryKernel lives, the calls by which the monitor reaches its kernel are answered from
// the texts written into it: fopen for reading, opendir with its walk, access, stat, realpath and
// readlink. One lives at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace corvane_fuzz {

class MemoryKernel {
public:
    MemoryKernel();
    MemoryKernel(const MemoryKernel&) = delete;
    MemoryKernel& operator=(const MemoryKernel&) = delete;
    ~MemoryKernel();

    /// Writes or replaces a file that can be read to its end. Folders exist through their files.
    void Write(std::string_view path, std::string_view text);
    void Remove(std::string_view path);
    /// Makes every read of the file fail after so many bytes.
    void FailRead(std::string_view path, size_t bytes_before);
    /// What every path links to; empty: none is a link.
    void SetLinkTarget(std::string_view target) { m_link_target = target; }

    /// Streams and folders that were opened and not closed.
    int CountOpen();

    // ---- For the functions that take libc's place ----

    struct File {
        std::string text;
        bool fails = false;
    };

    const File* Find(const char* path) const;
    /// Outside /proc everything exists, but for paths that hold the word "absent".
    bool Exists(const char* path) const;
    /// The name behind `after` in a folder, in order; empty at the end.
    std::string NextEntry(const std::string& folder, const std::string& after) const;
    const std::string& LinkTarget() const { return m_link_target; }
    void CountOpened() { ++m_open; }
    void CountClosed() { --m_open; }
    void WatchDescriptor(int descriptor);

private:
    std::map<std::string, File, std::less<>> m_files;
    std::map<int, bool> m_descriptors;  // handed out, by number
    std::string m_link_target;
    int m_open = 0;
};

}  // namespace corvane_fuzz
