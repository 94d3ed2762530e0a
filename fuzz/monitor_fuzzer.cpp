// Any bytes as the contents of every kernel file, and as the order of a host's calls.
//
// An input is a script of sections, each ended by a separator (0x1e) and begun by a tag: the letter
// of a kernel file, whose new contents follow; 'o', followed by operations of two bytes each; or
// one of the other tags below. A round of all operations ends every script.
//
// Beyond crashes the target checks what the header promises of every operation: defined statuses,
// records in bounds, nothing left open, records of the log that can be formatted.
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "kernel.h"
#include "monitor_test_peer.h"
#include "parser_check.h"

namespace {

using namespace CorvaneCommon;
using corvane_test::KernelCall;

constexpr uint32_t PID = 4711;
constexpr uint32_t ABSENT_PID = 4712;
constexpr char SEPARATOR = '\x1e';
constexpr size_t MAX_OPERATIONS = 40;  // per section: bounds the time that one input takes
constexpr size_t MAX_SECTIONS = 48;
constexpr size_t MAX_NAMES = 8;

const std::map<char, std::string> KERNEL_FILES = {{'s', "/proc/stat"},
                                                  {'m', "/proc/meminfo"},
                                                  {'n', "/proc/net/dev"},
                                                  {'d', "/proc/diskstats"},
                                                  {'r', "/proc/mdstat"},
                                                  {'t', "/etc/mtab"},
                                                  {'i', "/proc/self/mountinfo"},
                                                  {'p', "/proc/4711/stat"},
                                                  {'u', "/proc/4711/status"},
                                                  {'w', "/proc/4711/net/dev"},
                                                  {'x', "/proc/4711/task/4711/stat"},
                                                  {'y', "/proc/4711/task/4712/stat"},
                                                  {'z', "/proc/4711/task/99999999999/stat"}};
constexpr char TAG_OPERATIONS = 'o';
constexpr char TAG_NAMES = 'a';  // what operations are asked for
constexpr char TAG_FAIL = 'f';   // of the next reads the n-th, after so many bytes
constexpr char TAG_GONE = 'g';   // tags of files to remove

bool is_strict = false;
LogCategory all_records;

template <size_t N>
void CheckEnds(const char (&name)[N]) {
    FUZZ_CHECK(N == MONITOR_NAME_LENGTH && memchr(name, '\0', N) != nullptr, "name");
}

void CheckStatus(int32_t status) {
    FUZZ_CHECK(status == 0 || status == COMMON_ERR_INVALID_ARGUMENTS ||
                   status == COMMON_ERR_LINUX_SYSTEM_CALL_FAIL ||
                   status == COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE ||
                   (is_strict && status == COMMON_ERR_NO_BLOCK_DEVICE),
               "status");
}

/// Of an operation that fails with its figures at 0.
void CheckFigures(int32_t status, bool are_zero) {
    CheckStatus(status);
    FUZZ_CHECK(status == 0 || are_zero, "a figure in spite of a failure");
}

/// A host's call, with what one byte of the script draws for it.
struct Call {
    CMonitorPhysicalUtil& m;
    LogCategory*& log;
    const std::vector<std::string>& names;
    uint8_t choice;

    bool refresh = (choice & 1U) != 0;
    bool null = (choice & 0x80U) != 0;  // a record or a buffer is missing
    size_t index = (choice >> 3U) % names.size();
    const char* name = names[index].c_str();
    uint32_t pid = (choice & 0x40U) != 0 && refresh ? ABSENT_PID : PID;
    uint64_t interval = std::array<uint64_t, 4>{1, 60, 1ULL << 61U, 0}[(choice >> 1U) % 4];

    /// The record, or none.
    template <typename Record>
    Record* To(Record& record) const {
        return null ? nullptr : &record;
    }
    /// A host's list, a null entry in it.
    std::vector<const char*> Paths() const {
        std::vector<const char*> paths = {nullptr};
        for (const std::string& path : names) {
            paths.insert(&path < &names[index] ? paths.end() : paths.begin(), path.c_str());
        }
        return paths;
    }
};

// make_corpus knows how many there are and which one measures an interface.
constexpr void (*OPERATIONS[])(const Call&) = {
    [](const Call& c) {
        std::vector<const char*> paths = c.Paths();
        CheckStatus(
            c.m.SetDiskInfo(paths.data(), c.null ? 1 : static_cast<uint32_t>(paths.size()), c.log));
    },
    [](const Call& c) { CheckStatus(c.m.CalcCPUMonitorInfo(c.refresh, c.log)); },
    [](const Call& c) { CheckStatus(c.m.CalcCPUMonitorInfoForTinyCycle(c.refresh, c.log)); },
    [](const Call& c) {
        CPUInfoResult result;
        CheckStatus(c.m.GetCPUMonitorInfo(c.To(result), c.log));
        CheckStatus(c.m.GetCPUMonitorInfoForTinyCycle(c.To(result), c.log));
        FUZZ_CHECK(result.cpu_core_num <= 4096, "cores");
    },
    [](const Call& c) {
        CPUInfoResult r;
        const char* const name = c.null ? nullptr : c.name;
        CheckFigures(c.m.GetCPUMonitorInfo(&r, name, c.refresh, c.log), r.cpu_utilization == 0);
    },
    [](const Call& c) { CheckStatus(c.m.CalcProcessCPUMonitorInfo(c.pid, c.log, !c.null)); },
    [](const Call& c) {
        CheckStatus(c.m.CalcProcessCPUMonitorInfoForTinyCycle(c.null ? 0 : c.pid, c.log));
    },
    [](const Call& c) {
        int32_t process = -1;
        int32_t thread = -1;
        CheckFigures(c.m.GetProcessCPUMonitorInfo(process, c.pid, c.log), process == 0);
        CheckFigures(c.m.GetProcessMaxThreadCPUMonitorInfo(thread, c.pid, c.log), thread == 0);
        FUZZ_CHECK(thread <= 100, "busiest thread");
        FUZZ_CHECK(!is_strict || (process >= 0 && thread >= 0), "negative");
        CheckStatus(c.m.GetProcessCPUMonitorInfoForTinyCycle(process, thread, c.pid, c.log));
        FUZZ_CHECK(!is_strict || (process >= 0 && thread >= 0), "negative");
    },
    [](const Call& c) {
        MemoryInfo memory;
        CheckFigures(c.m.GetMemoryMonitorInfo(c.To(memory), c.log), memory.use_mb == 0);
    },
    [](const Call& c) {
        ProcessMemoryInfo memory;
        CheckStatus(c.m.GetProcessMemoryMonitorInfo(c.To(memory), c.pid, c.log));
    },
    [](const Call& c) { CheckStatus(c.m.CalcNetworkMonitorInfo(c.interval, c.refresh, c.log)); },
    [](const Call& c) {
        CheckStatus(c.m.CalcNetworkMonitorInfoForTinyCycle(c.interval, c.refresh, c.log));
    },
    [](const Call& c) {
        CheckStatus(
            c.m.CalcProcessNetworkMonitorInfoForTinyCycle(c.pid, c.interval, c.refresh, c.log));
    },
    [](const Call& c) {
        NetworkInfoResult r[2];
        CheckStatus(c.m.GetNetworkMonitorInfo(c.To(r[0]), c.log));
        CheckStatus(c.m.GetProcessNetworkMonitorInfoForTinyCycle(c.To(r[1]), c.log));
        CheckEnds(r[0].input_nic_name);
        CheckEnds(r[1].output_nic_name);
    },
    [](const Call& c) {
        NetworkInfoResult r;
        CheckStatus(c.m.GetNetworkMonitorInfo(c.To(r), c.name, c.interval, c.refresh, c.log));
        FUZZ_CHECK(r.input_nic_name[0] == '\0' && r.output_nic_name[0] == '\0', "names");
    },
    [](const Call& c) {
        // Of the exact size, so that one byte too many is seen.
        std::vector<char> buffer(c.index * c.index);
        buffer.shrink_to_fit();
        const int32_t status = c.m.GetProcessRawNetworkInfo(
            c.null ? nullptr : buffer.data(), static_cast<uint32_t>(buffer.size()), c.pid, c.log);
        CheckStatus(status);
        FUZZ_CHECK(status != 0 || buffer.back() == '\0', "no end");
    },
    [](const Call& c) {
        std::vector<char> name(c.interval == 60 ? 2 : MONITOR_NAME_LENGTH, 'x');
        const int32_t status = c.m.GetDiskNameByFileName(
            c.null ? nullptr : name.data(), static_cast<uint32_t>(name.size()), c.name, c.log);
        CheckStatus(status);
        FUZZ_CHECK(status != 0 || memchr(name.data(), '\0', name.size()) != nullptr, "no end");
    },
    [](const Call& c) {
        CheckStatus(c.m.CalcDiskIOMonitorInfo(c.name, c.interval, c.refresh, c.log));
    },
    [](const Call& c) {
        CheckStatus(c.m.CalcDiskIOMonitorInfo(c.Paths(), c.interval, c.refresh, c.log));
    },
    [](const Call& c) {
        DiskIOInfoResult result;
        CheckStatus(c.m.GetDiskIOMonitorInfo(c.To(result), c.name, c.log));
        CheckEnds(result.disk_name);
        FUZZ_CHECK(result.disk_io_rate <= 100, "busy rate");
    },
    [](const Call& c) {
        const auto result = std::make_unique<DiskNameInfoResult>();
        DiskNameInfoResult* target = c.To(*result);
        CheckStatus(c.m.GetDiskNameInfo(target, c.log));
        FUZZ_CHECK(result->disk_number <= MONITOR_MAX_DISK_NUM, "disks");
        std::for_each_n(result->disk_name, result->disk_number,
                        [](const auto& name) { CheckEnds(name); });
    },
    [](const Call& c) {
        DiskInfoResult result;
        CheckStatus(c.m.GetDiskMonitorInfo(c.To(result), c.name, c.log));
        CheckEnds(result.file_path);
    },
    [](const Call& c) {
        CheckStatus(c.m.ClearCPUPhasedCacheValue(c.log));
        CheckStatus(c.m.ClearCPUPhasedCacheValueForTinyCycle(c.log));
        CheckStatus(c.m.ClearProcessCPUPhasedCacheValue(c.log));
        CheckStatus(c.m.ClearDiskIOPhasedcacheValue(c.log));
        CheckStatus(c.m.ClearNetWorkPhasedCacheValue(c.log));
        CheckStatus(c.m.ClearProcessNetWorkPhasedCacheValueForTinyCycle(c.log));
    },
    [](const Call& c) {
        is_strict = c.refresh;
        CheckStatus(c.m.SetStrictReading(is_strict, c.log));
    },
    [](const Call& c) {
        std::vector<const char*> interfaces = c.Paths();
        const auto count = static_cast<uint32_t>(c.index);
        CheckStatus(c.m.SetNetworkInterfaces(c.null ? nullptr : interfaces.data(), count, c.log));
    },
    [](const Call& c) {
        std::vector<CPUCoreInfo> cores(1);
        std::vector<NetworkInterfaceInfo> interfaces(1);
        CheckFigures(c.m.GetCPUCoreInfo(cores, c.log), cores.empty());
        CheckFigures(c.m.GetNetworkInterfaceInfo(interfaces, c.log), interfaces.empty());
        for (const CPUCoreInfo& core : cores) {
            FUZZ_CHECK(core.cpu_utilization <= 100, "core");
        }
    },
    [](const Call& c) { c.log = c.refresh ? &all_records : nullptr; }};

/// A monitor, its kernel and the host that calls it.
class Session {
public:
    Session() {
        all_records.piPriorityLow = &LOG_PRIORITY_TRACE;
        is_strict = false;
        // An array, a partition, what only its mount tells, and what no table lists.
        m_kernel.status["/"].st_dev = makedev(9, 127);
        m_kernel.status["/data"].st_dev = makedev(8, 1);
        m_kernel.status["/srv"].st_dev = makedev(0, 30);
        m_kernel.status["/mnt"].st_dev = makedev(8, 99);
        m_kernel.status["/dev/sdb"].st_mode = S_IFBLK;
        m_kernel.status["/dev/sdb"].st_rdev = makedev(8, 2);
        m_kernel.Write("/dev/sdb", "");
        m_kernel.Write("/sys/devices/sda/sda1/partition", "");
        m_kernel.MakeLink("/sys/dev/block/8:1", "../../devices/sda/sda1");
        SetNames("cpu;cpu1;eth0;eth1;/;/data/db;/srv/deep/path/file;/mnt/raid/absent");
    }

    void Play(std::string_view script) {
        for (size_t i = 0; i < MAX_SECTIONS && !script.empty(); ++i) {
            const std::string_view section = script.substr(0, script.find(SEPARATOR));
            if (!section.empty()) {
                PlaySection(section[0], section.substr(1));
            }
            script.remove_prefix(std::min(section.size() + 1, script.size()));
        }
    }

    void Run(size_t index, uint8_t choice) {
        if (m_monitor == nullptr) {  // now, so that discovery meets the script's files
            m_monitor = std::make_unique<MonitorPhysicalUtilTestPeer>();
        }
        m_kernel.monotonic_us += 10000 * choice;
        OPERATIONS[index % std::size(OPERATIONS)]({m_monitor->monitor, m_log, m_names, choice});
        FUZZ_CHECK(m_kernel.CountOpen() == 0, "left open");
    }

private:
    void PlaySection(char tag, std::string_view text) {
        const auto file = KERNEL_FILES.find(tag);
        if (file != KERNEL_FILES.end()) {
            m_kernel.Write(file->second, text);
            corvane_fuzz::CheckParsers(text);
        } else if (tag == TAG_OPERATIONS) {
            for (size_t i = 0; i + 1 < std::min(text.size(), 2 * MAX_OPERATIONS); i += 2) {
                Run(static_cast<uint8_t>(text[i]), static_cast<uint8_t>(text[i + 1]));
            }
        } else if (tag == TAG_NAMES) {
            SetNames(text);
        } else if (tag == TAG_FAIL && text.size() >= 2) {
            m_kernel.Fail(KernelCall::Read, text[0], EIO, static_cast<uint8_t>(text[1]));
        } else if (tag == TAG_GONE) {
            for (const char gone : text) {
                m_kernel.Remove(KERNEL_FILES.count(gone) > 0 ? KERNEL_FILES.at(gone) : "/none");
            }
        }
    }

    /// Those without the word "absent" are there as folders.
    void SetNames(std::string_view list) {
        m_names = {"/"};
        std::istringstream names{std::string(list)};
        for (std::string name; m_names.size() < MAX_NAMES && std::getline(names, name, ';');) {
            m_names.push_back(name);
            if (name.find("absent") == std::string::npos) {
                m_kernel.MakeFolder((name[0] == '/' ? "" : "/") + name);
            }
        }
    }

    corvane_test::Kernel m_kernel;
    std::unique_ptr<MonitorPhysicalUtilTestPeer> m_monitor;
    std::vector<std::string> m_names;
    LogCategory* m_log = &all_records;
};

}  // namespace

bool CategoryCanWrite(LogCategory* /*category*/, int32_t /*priority*/) {
    return true;
}

void CategoryLogV(LogCategory* /*category*/, int32_t priority, const char* file, int32_t line,
                  const char* function, const char* format, va_list arguments) {
    // Formatted for the sanitizer's sake, which then looks at every argument.
    static char text[1 << 17];
    const int length = vsnprintf(text, sizeof(text), format, arguments);
    constexpr std::string_view SOURCES = "src/common/monitor_physical_util";
    FUZZ_CHECK(length > 0 && line > 0 && function[0] != '\0', format);
    FUZZ_CHECK(std::string_view(file).substr(0, SOURCES.size()) == SOURCES, file);
    FUZZ_CHECK(priority >= LOG_PRIORITY_ERROR && priority <= LOG_PRIORITY_TRACE, format);
}

int32_t GetDiskSize(uint64_t& total, uint64_t& free, const char* /*file_path*/,
                    LogCategory* /*log_handle*/) {
    total = 1000;
    free = 400;
    return 0;
}

// A small quarantine: a large one spends half of the time on fresh pages.
extern "C" const char* __asan_default_options() {
    return "quarantine_size_mb=4";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Session session;
    session.Play({reinterpret_cast<const char*>(data), size});
    for (size_t i = 0; i < 2 * std::size(OPERATIONS); ++i) {
        session.Run(i, 1);  // the second round is the strict reading's
    }
    return 0;
}
