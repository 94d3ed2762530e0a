// Any bytes as the contents of every kernel file, and as the order of a host's calls.
//
// An input is a script of sections, each ended by a separator (0x1e) and begun by a
// tag: the letter of a kernel file, whose new contents follow; 'o', followed by operations of two
// bytes each; or one of the other tags below. So files change between operations, and single ones
// fail or vanish. An input without a separator is the contents of every file at once. Whatever the
// script does, a round of all operations ends it.
//
// Beyond crashes the target checks what the header promises of every operation: defined statuses,
// records in bounds, nothing left open, records of the log that can be formatted.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_check.h"
#include "memory_kernel.h"
#include "monitor_test_peer.h"
#include "parser_check.h"

namespace {

using namespace CorvaneCommon;
using corvane_fuzz::MemoryKernel;
using Monitor = MonitorPhysicalUtilTestPeer;

constexpr uint32_t PID = 4711;
constexpr uint32_t ABSENT_PID = 4712;
constexpr char SEPARATOR = '\x1e';
constexpr size_t MAX_OPERATIONS = 40;  // per section: bounds the time that one input takes
constexpr size_t MAX_SECTIONS = 48;
constexpr int32_t HOST_STATUS = 7;  // of a GetDiskSize that fails

struct KernelFile {
    char tag;
    const char* path;
};
constexpr KernelFile KERNEL_FILES[] = {{'s', "/proc/stat"},
                                       {'m', "/proc/meminfo"},
                                       {'n', "/proc/net/dev"},
                                       {'d', "/proc/diskstats"},
                                       {'r', "/proc/mdstat"},
                                       {'t', "/etc/mtab"},
                                       {'p', "/proc/4711/stat"},
                                       {'u', "/proc/4711/status"},
                                       {'w', "/proc/4711/net/dev"},
                                       {'x', "/proc/4711/task/4711/stat"},
                                       {'y', "/proc/4711/task/4712/stat"},
                                       {'z', "/proc/4711/task/99999999999/stat"},
                                       {'c', "/proc/4711/task/4713/comm"}};  // no stat: has ended
constexpr char TAG_OPERATIONS = 'o';
constexpr char TAG_NAMES = 'a';  // what operations are asked for
constexpr char TAG_LINK = 'l';   // where links lead
constexpr char TAG_FAIL = 'f';   // tag of a file, bytes that can be read (two bytes, low first)
constexpr char TAG_GONE = 'g';   // tags of files to remove

const char* PathOfTag(char tag) {
    for (const KernelFile& file : KERNEL_FILES) {
        if (file.tag == tag) {
            return file.path;
        }
    }
    return nullptr;
}

int32_t disk_size_status = 0;

template <size_t N>
void CheckEnds(const char (&name)[N]) {
    FUZZ_CHECK(N == MONITOR_NAME_LENGTH && memchr(name, '\0', N) != nullptr, "name");
}

void CheckNames(const NetworkInfoResult& result) {
    CheckEnds(result.input_nic_name);
    CheckEnds(result.output_nic_name);
}

/// What one operation is given, drawn from one byte of the script.
struct Arguments {
    explicit Arguments(uint8_t choice, const std::vector<std::string>& names)
        : refresh((choice & 1U) != 0),
          name_index((choice >> 3U) % names.size()),
          name(names[name_index].c_str()),
          pid((choice & 0x40U) != 0 && (choice & 1U) != 0 ? ABSENT_PID : PID),
          null((choice & 0x80U) != 0) {
        constexpr std::array<uint64_t, 4> INTERVALS = {1, 60, 1ULL << 61U, 0};
        interval = INTERVALS[(choice >> 1U) % INTERVALS.size()];
    }

    bool refresh;
    size_t name_index;
    const char* name;
    uint32_t pid;
    bool null;  // a record or a buffer is missing
    uint64_t interval = 0;
};

/// A monitor, its kernel and the host that calls it.
class Session {
public:
    Session() { m_log.piPriorityLow = &LOG_PRIORITY_TRACE; }

    void Play(std::string_view script);
    void RunAllOperations(uint8_t choice);

private:
    void PlaySection(char tag, std::string_view text);
    void SetNames(std::string_view list);
    void RunOperation(size_t index, uint8_t choice);
    void CheckStatus(int32_t status);

    // One of each family of operations, in OPERATIONS.
    void CalcCPU(const Arguments& arguments);
    void CalcTinyCPU(const Arguments& arguments);
    void GetCPU(const Arguments& arguments);
    void GetCPUOfLine(const Arguments& arguments);
    void ClearCPU(const Arguments& arguments);
    void CalcProcess(const Arguments& arguments);
    void CalcTinyProcess(const Arguments& arguments);
    void CalcProcessOfSamples(const Arguments& arguments);
    void GetProcess(const Arguments& arguments);
    void GetMemory(const Arguments& arguments);
    void GetProcessMemory(const Arguments& arguments);
    void CalcNetwork(const Arguments& arguments);
    void CalcTinyNetwork(const Arguments& arguments);
    void CalcProcessNetwork(const Arguments& arguments);
    void GetNetwork(const Arguments& arguments);
    void GetNetworkOfNic(const Arguments& arguments);
    void ClearNetwork(const Arguments& arguments);
    void GetProcessRawNetwork(const Arguments& arguments);
    void SetDisks(const Arguments& arguments);
    void GetDiskNames(const Arguments& arguments);
    void GetDiskName(const Arguments& arguments);
    void CalcDisk(const Arguments& arguments);
    void CalcDisks(const Arguments& arguments);
    void GetDisk(const Arguments& arguments);
    void GetSpace(const Arguments& arguments);
    void CheckPaths(const Arguments& arguments);

    using Operation = void (Session::*)(const Arguments&);
    static const Operation OPERATIONS[];
    static const size_t OPERATION_COUNT;

    /// Made by the first operation, so that discovery meets the script's files.
    Monitor& TheMonitor() {
        if (m_monitor == nullptr) {
            m_monitor = std::make_unique<Monitor>();
        }
        return *m_monitor;
    }

    /// The paths of a host's list, a null entry among them.
    std::vector<const char*> Paths() const {
        std::vector<const char*> paths = {nullptr};
        for (const std::string& name : m_names) {
            paths.push_back(name.c_str());
        }
        return paths;
    }

    MemoryKernel m_kernel;
    std::unique_ptr<Monitor> m_monitor;
    std::vector<std::string> m_names = {
        "cpu", "cpu1", "eth0", "eth1", "/", "/data/db", "/srv/deep/path/file", "/mnt/raid/absent"};
    LogCategory m_log;
    LogCategory* m_handle = &m_log;
};

void Session::CheckStatus(int32_t status) {
    FUZZ_CHECK(status == 0 || status == COMMON_ERR_INVALID_ARGUMENTS ||
                   status == COMMON_ERR_LINUX_SYSTEM_CALL_FAIL ||
                   status == COMMON_ERR_NOT_FIND_STAT_CACHE_VALUE,
               "status");
}

void Session::CalcCPU(const Arguments& arguments) {
    CheckStatus(TheMonitor()->CalcCPUMonitorInfo(arguments.refresh, m_handle));
}

void Session::CalcTinyCPU(const Arguments& arguments) {
    CheckStatus(TheMonitor()->CalcCPUMonitorInfoForTinyCycle(arguments.refresh, m_handle));
}

void Session::GetCPU(const Arguments& arguments) {
    constexpr uint32_t MAX_CORES = 4096;
    CPUInfoResult result;
    CheckStatus(TheMonitor()->GetCPUMonitorInfo(arguments.null ? nullptr : &result, m_handle));
    FUZZ_CHECK(result.cpu_core_num <= MAX_CORES, "cores");
    CheckStatus(
        TheMonitor()->GetCPUMonitorInfoForTinyCycle(arguments.null ? nullptr : &result, m_handle));
}

void Session::GetCPUOfLine(const Arguments& arguments) {
    CPUInfoResult result;
    const int32_t status = TheMonitor()->GetCPUMonitorInfo(
        &result, arguments.null ? nullptr : arguments.name, arguments.refresh, m_handle);
    CheckStatus(status);
    FUZZ_CHECK(status == 0 || result.cpu_utilization == 0, "a figure in spite of a failure");
}

void Session::ClearCPU(const Arguments& /*arguments*/) {
    CheckStatus(TheMonitor()->ClearCPUPhasedCacheValue(m_handle));
    CheckStatus(TheMonitor()->ClearCPUPhasedCacheValueForTinyCycle(m_handle));
    CheckStatus(TheMonitor()->ClearProcessCPUPhasedCacheValue(m_handle));
    CheckStatus(TheMonitor()->ClearDiskIOPhasedcacheValue(m_handle));
}

void Session::CalcProcess(const Arguments& arguments) {
    CheckStatus(TheMonitor()->CalcProcessCPUMonitorInfo(arguments.pid, m_handle, !arguments.null));
}

void Session::CalcTinyProcess(const Arguments& arguments) {
    CheckStatus(TheMonitor()->CalcProcessCPUMonitorInfoForTinyCycle(
        arguments.null ? 0 : arguments.pid, m_handle));
}

void Session::CalcProcessOfSamples(const Arguments& arguments) {
    CPUInfo machine;
    machine.user = arguments.interval;
    ProcessCPUInfo process_sample;
    process_sample.user = arguments.name_index;
    process_sample.thread_cpu_info[PID].system = arguments.name_index * arguments.interval;
    int32_t process = -1;
    int32_t thread = -1;
    const int32_t status = TheMonitor()->CalcProcessCPUInfoForTinyCycle(
        process, thread, arguments.null ? nullptr : &machine, &process_sample, arguments.pid,
        arguments.refresh, m_handle);
    CheckStatus(status);
    FUZZ_CHECK(status == 0 || (process == 0 && thread == 0), "a figure in spite of a failure");
}

void Session::GetProcess(const Arguments& arguments) {
    constexpr int32_t MAX_THREAD_PERCENT = 100;
    int32_t process = -1;
    int32_t thread = -1;
    int32_t status = TheMonitor()->GetProcessCPUMonitorInfo(process, arguments.pid, m_handle);
    CheckStatus(status);
    FUZZ_CHECK(status == 0 || process == 0, "a figure in spite of a failure");
    status = TheMonitor()->GetProcessMaxThreadCPUMonitorInfo(thread, arguments.pid, m_handle);
    CheckStatus(status);
    FUZZ_CHECK(status == 0 || thread == 0, "a figure in spite of a failure");
    FUZZ_CHECK(thread <= MAX_THREAD_PERCENT, "busiest thread");
    CheckStatus(TheMonitor()->GetProcessCPUMonitorInfoForTinyCycle(process, thread, arguments.pid,
                                                                   m_handle));
}

void Session::GetMemory(const Arguments& arguments) {
    MemoryInfo result;
    const int32_t status =
        TheMonitor()->GetMemoryMonitorInfo(arguments.null ? nullptr : &result, m_handle);
    CheckStatus(status);
    FUZZ_CHECK(status == 0 || result.use_mb == 0, "a figure in spite of a failure");
}

void Session::GetProcessMemory(const Arguments& arguments) {
    ProcessMemoryInfo result;
    CheckStatus(TheMonitor()->GetProcessMemoryMonitorInfo(arguments.null ? nullptr : &result,
                                                          arguments.pid, m_handle));
}

void Session::CalcNetwork(const Arguments& arguments) {
    CheckStatus(
        TheMonitor()->CalcNetworkMonitorInfo(arguments.interval, arguments.refresh, m_handle));
}

void Session::CalcTinyNetwork(const Arguments& arguments) {
    CheckStatus(TheMonitor()->CalcNetworkMonitorInfoForTinyCycle(arguments.interval,
                                                                 arguments.refresh, m_handle));
}

void Session::CalcProcessNetwork(const Arguments& arguments) {
    CheckStatus(TheMonitor()->CalcProcessNetworkMonitorInfoForTinyCycle(
        arguments.pid, arguments.interval, arguments.refresh, m_handle));
}

void Session::GetNetwork(const Arguments& arguments) {
    NetworkInfoResult result;
    NetworkInfoResult* const target = arguments.null ? nullptr : &result;
    CheckStatus(TheMonitor()->GetNetworkMonitorInfo(target, m_handle));
    CheckNames(result);
    CheckStatus(TheMonitor()->GetNetworkMonitorInfoForTinyCycle(target, m_handle));
    CheckNames(result);
    CheckStatus(TheMonitor()->GetProcessNetworkMonitorInfoForTinyCycle(target, m_handle));
    CheckNames(result);
}

void Session::GetNetworkOfNic(const Arguments& arguments) {
    NetworkInfoResult result;
    CheckStatus(TheMonitor()->GetNetworkMonitorInfo(arguments.null ? nullptr : &result,
                                                    arguments.name, arguments.interval,
                                                    arguments.refresh, m_handle));
    FUZZ_CHECK(result.input_nic_name[0] == '\0' && result.output_nic_name[0] == '\0', "names");
    NetworkInfo sample;
    const char* const name = arguments.null ? nullptr : arguments.name;
    CheckStatus(TheMonitor()->CalcNetworkInfoForTinyCycle(&result, &sample, name,
                                                          arguments.interval, false, m_handle));
    CheckStatus(TheMonitor()->CalcProcessNetworkInfoForTinyCycle(
        &result, &sample, name, arguments.interval, false, m_handle));
}

void Session::ClearNetwork(const Arguments& /*arguments*/) {
    CheckStatus(TheMonitor()->ClearNetWorkPhasedCacheValue(m_handle));
    CheckStatus(TheMonitor()->ClearProcessNetWorkPhasedCacheValueForTinyCycle(m_handle));
}

void Session::GetProcessRawNetwork(const Arguments& arguments) {
    // Of the exact size, so that one byte too many is seen.
    const auto length = static_cast<uint32_t>(arguments.name_index * arguments.name_index);
    std::vector<char> buffer(length);
    buffer.shrink_to_fit();
    const int32_t status = TheMonitor()->GetProcessRawNetworkInfo(
        arguments.null ? nullptr : buffer.data(), length, arguments.pid, m_handle);
    CheckStatus(status);
    FUZZ_CHECK(status != 0 || buffer.back() == '\0', "no end");
}

void Session::SetDisks(const Arguments& arguments) {
    std::vector<const char*> paths = Paths();
    std::rotate(paths.begin(), paths.begin() + static_cast<ptrdiff_t>(arguments.name_index),
                paths.end());
    const auto count = static_cast<uint32_t>(arguments.null ? 1 : paths.size());
    CheckStatus(TheMonitor()->SetDiskInfo(paths.data(), count, m_handle));
}

void Session::GetDiskNames(const Arguments& arguments) {
    const auto result = std::make_unique<DiskNameInfoResult>();
    DiskNameInfoResult* target = arguments.null ? nullptr : result.get();
    CheckStatus(TheMonitor()->GetDiskNameInfo(target, m_handle));
    FUZZ_CHECK(result->disk_number <= MONITOR_MAX_DISK_NUM, "disks");
    for (uint32_t row = 0; row < result->disk_number; ++row) {
        CheckEnds(result->disk_name[row]);
    }
}

void Session::GetDiskName(const Arguments& arguments) {
    const auto length = static_cast<uint32_t>(arguments.interval == 60 ? 2 : MONITOR_NAME_LENGTH);
    std::vector<char> name(length, 'x');
    const int32_t status = TheMonitor()->GetDiskNameByFileName(
        arguments.null ? nullptr : name.data(), length, arguments.name, m_handle);
    CheckStatus(status);
    FUZZ_CHECK(status != 0 || memchr(name.data(), '\0', length) != nullptr, "no end");
}

void Session::CalcDisk(const Arguments& arguments) {
    CheckStatus(TheMonitor()->CalcDiskIOMonitorInfo(arguments.name, arguments.interval,
                                                    arguments.refresh, m_handle));
}

void Session::CalcDisks(const Arguments& arguments) {
    CheckStatus(TheMonitor()->CalcDiskIOMonitorInfo(Paths(), arguments.interval, arguments.refresh,
                                                    m_handle));
}

void Session::GetDisk(const Arguments& arguments) {
    constexpr uint32_t MAX_RATE = 100;
    DiskIOInfoResult result;
    CheckStatus(TheMonitor()->GetDiskIOMonitorInfo(arguments.null ? nullptr : &result,
                                                   arguments.name, m_handle));
    CheckEnds(result.disk_name);
    FUZZ_CHECK(result.disk_io_rate <= MAX_RATE, "busy rate");
}

void Session::GetSpace(const Arguments& arguments) {
    disk_size_status = arguments.refresh ? HOST_STATUS : 0;
    DiskInfoResult result;
    const int32_t status = TheMonitor()->GetDiskMonitorInfo(arguments.null ? nullptr : &result,
                                                            arguments.name, m_handle);
    if (status != HOST_STATUS) {
        CheckStatus(status);
    }
    CheckEnds(result.file_path);
}

void Session::CheckPaths(const Arguments& arguments) {
    CMonitorPhysicalUtil::IsFileExist(arguments.null ? nullptr : arguments.name);
    CMonitorPhysicalUtil::IsPIDValid(arguments.pid, m_handle);
    m_handle = arguments.refresh ? &m_log : nullptr;
    TheMonitor()->GetCPUCoreNum();
    FUZZ_CHECK(TheMonitor()->GetDefaultDiskFilePath()[0] == '/', "default path");
}

const Session::Operation Session::OPERATIONS[] = {&Session::SetDisks,
                                                  &Session::CalcCPU,
                                                  &Session::CalcTinyCPU,
                                                  &Session::GetCPU,
                                                  &Session::GetCPUOfLine,
                                                  &Session::CalcProcess,
                                                  &Session::CalcTinyProcess,
                                                  &Session::CalcProcessOfSamples,
                                                  &Session::GetProcess,
                                                  &Session::GetMemory,
                                                  &Session::GetProcessMemory,
                                                  &Session::CalcNetwork,
                                                  &Session::CalcTinyNetwork,
                                                  &Session::CalcProcessNetwork,
                                                  &Session::GetNetwork,
                                                  &Session::GetNetworkOfNic,
                                                  &Session::GetProcessRawNetwork,
                                                  &Session::GetDiskName,
                                                  &Session::CalcDisk,
                                                  &Session::CalcDisks,
                                                  &Session::GetDisk,
                                                  &Session::GetDiskNames,
                                                  &Session::GetSpace,
                                                  &Session::ClearCPU,
                                                  &Session::ClearNetwork,
                                                  &Session::CheckPaths};
const size_t Session::OPERATION_COUNT = std::size(OPERATIONS);

void Session::RunOperation(size_t index, uint8_t choice) {
    (this->*OPERATIONS[index % OPERATION_COUNT])(Arguments(choice, m_names));
    FUZZ_CHECK(m_kernel.CountOpen() == 0, "left open");
}

void Session::RunAllOperations(uint8_t choice) {
    for (size_t i = 0; i < OPERATION_COUNT; ++i) {
        RunOperation(i, choice);
    }
}

void Session::SetNames(std::string_view list) {
    constexpr char NAME_SEPARATOR = '\x1f';  // names may hold newlines
    constexpr size_t MAX_NAMES = 8;
    m_names.clear();
    while (m_names.size() < MAX_NAMES) {
        const size_t length = std::min(list.find(NAME_SEPARATOR), list.size());
        m_names.emplace_back(list.substr(0, length));
        if (length == list.size()) {
            return;
        }
        list.remove_prefix(length + 1);
    }
}

void Session::PlaySection(char tag, std::string_view text) {
    const char* path = PathOfTag(tag);
    if (path != nullptr) {
        m_kernel.Write(path, text);
        corvane_fuzz::CheckParsers(text);
        return;
    }
    switch (tag) {
        case TAG_OPERATIONS:
            for (size_t i = 0; i + 1 < std::min(text.size(), 2 * MAX_OPERATIONS); i += 2) {
                RunOperation(static_cast<uint8_t>(text[i]), static_cast<uint8_t>(text[i + 1]));
            }
            break;
        case TAG_NAMES:
            SetNames(text);
            break;
        case TAG_LINK:
            m_kernel.SetLinkTarget(text);
            break;
        case TAG_FAIL:
            path = text.size() < 3 ? nullptr : PathOfTag(text[0]);
            if (path != nullptr) {
                m_kernel.FailRead(path,
                                  static_cast<uint8_t>(text[1]) +
                                      (static_cast<size_t>(static_cast<uint8_t>(text[2])) << 8U));
            }
            break;
        case TAG_GONE:
            for (const char gone : text) {
                path = PathOfTag(gone);
                if (path != nullptr) {
                    m_kernel.Remove(path);
                }
            }
            break;
        default:
            break;
    }
}

void Session::Play(std::string_view script) {
    if (script.find(SEPARATOR) == std::string_view::npos) {
        for (const KernelFile& file : KERNEL_FILES) {
            m_kernel.Write(file.path, script);
        }
        corvane_fuzz::CheckParsers(script);
        return;
    }
    for (size_t i = 0; i < MAX_SECTIONS && !script.empty(); ++i) {
        const size_t length = std::min(script.find(SEPARATOR), script.size());
        if (length > 0) {
            PlaySection(script[0], script.substr(1, length - 1));
        }
        script.remove_prefix(std::min(length + 1, script.size()));
    }
}

}  // namespace

bool CategoryCanWrite(LogCategory* /*category*/, int32_t /*priority*/) {
    return true;
}

void CategoryLogV(LogCategory* /*category*/, int32_t priority, const char* file, int32_t line,
                  const char* function, const char* format, va_list arguments) {
    // Formatted for the sanitizer's sake, which then looks at every argument.
    static char text[1 << 17];
    const int length = vsnprintf(text, sizeof(text), format, arguments);
    constexpr const char* SOURCES = "src/common/monitor_physical_util";
    FUZZ_CHECK(length > 0 && line > 0 && function[0] != '\0', format);
    FUZZ_CHECK(strncmp(file, SOURCES, strlen(SOURCES)) == 0, file);
    FUZZ_CHECK(priority == LOG_PRIORITY_ERROR || priority == LOG_PRIORITY_WARN ||
                   priority == LOG_PRIORITY_DEBUG || priority == LOG_PRIORITY_TRACE,
               format);
}

int32_t GetDiskSize(uint64_t& total, uint64_t& free, const char* /*file_path*/,
                    LogCategory* /*log_handle*/) {
    total = 1000;
    free = 400;
    return disk_size_status;
}

// A small quarantine: a large one spends half of the time on fresh pages.
extern "C" const char* __asan_default_options() {
    return "quarantine_size_mb=4";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint8_t REFRESH_EACH_SECOND = 1;
    Session session;
    session.Play({reinterpret_cast<const char*>(data), size});
    session.RunAllOperations(REFRESH_EACH_SECOND);
    return 0;
}
