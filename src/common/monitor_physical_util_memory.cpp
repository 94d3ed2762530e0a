// Memory of the machine (/proc/meminfo) and of a process (/proc/PID/status).
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "monitor_physical_util.h"
#include "monitor_physical_util_internal.h"
#include "monitor_physical_util_log.h"
#include "monitor_physical_util_reading.h"
#include "monitor_physical_util_text.h"

namespace CorvaneCommon {

namespace {

constexpr const char* MEMINFO_PATH = "/proc/meminfo";
constexpr size_t MEMORY_KEYS = 5;

/// Reads the keys in order. As text, each is searched behind the line of the one before, which is
/// how "Cached" finds its own line and not SwapCached's, and the failures' texts show the buffer up
/// to where the first line found was cut.
template <typename Reading, size_t N>
int32_t ReadKeys(const Reading& reading, char* buffer, const MemoryKey (&keys)[N],
                 const char* file_path, LogCategory* log_handle) {
    char* position = buffer;
    for (const MemoryKey& key : keys) {
        char* line = reading.find_key(position, key.name);
        if (line == nullptr && !reading.keys_in_order) {
            line = reading.find_key(buffer, key.name);
        }
        if (line == nullptr && key.optional && reading.memory_is_checked) {
            continue;
        }
        if (line == nullptr) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, key.not_found_text, buffer);
            return COMMON_ERR_INVALID_ARGUMENTS;
        }
        position = CutLine(line);
        if (position == nullptr) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, key.no_newline_text, buffer);
            return COMMON_ERR_INVALID_ARGUMENTS;
        }
        if (!ParseKeyValue(line, key.value)) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "sscanf failed, file: %s, buf: %s.",
                        file_path, buffer);
            return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
        }
        if (!reading.keys_in_order) {
            position[-1] = '\n';
        }
    }
    return 0;
}

/// Whether a part of the memory is more than all of it.
bool AnyAbove(const MemoryKey (&keys)[MEMORY_KEYS], uint64_t total_kb) {
    return std::any_of(std::begin(keys), std::end(keys),
                       [=](const MemoryKey& key) { return key.value > total_kb; });
}

}  // namespace

bool ParseKeyValue(const char* line, uint64_t& value) {
    return SkipWord(line) && ScanNumber(line, value);
}

int32_t CMonitorPhysicalUtil::GetMemoryInfo(MemoryInfo* memory_info, LogCategory* log_handle) {
    if (memory_info == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "memory_info is NULL.");
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    memory_info->total_mb = 0;
    memory_info->use_mb = 0;
    KernelText text(WholeText());
    int32_t ret = text.Fill([&](char* buffer, uint32_t length) {
        return ReadFromFile(buffer, length, MEMINFO_PATH, log_handle, Buffer::Unset);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "ReadFromFile failed, file: %s.", MEMINFO_PATH);
        return ret;
    }

    // A missing Buffers or Shmem line is reported as Cached: log searches know it by that name.
    uint64_t free_kb = 0;
    uint64_t buffers_kb = 0;
    uint64_t cached_kb = 0;
    uint64_t shared_kb = 0;
    const MemoryKey keys[MEMORY_KEYS] = {
        {"MemTotal", memory_info->total_mb, "%s Can not find MemTotal.",
         "%s Can not find \\n after MemTotal."},
        {"MemFree", free_kb, "%s Can not find MemFree.", "%s Can not find \\n after MemFree."},
        {"Buffers", buffers_kb, "%s Can not find Cached.", "%s Can not find \\n after Cached.",
         true},
        {"Cached", cached_kb, "%s Can not find Cached.", "%s Can not find \\n after Cached.", true},
        {"Shmem", shared_kb, "%s Can not find Cached.", "%s Can not find \\n after Cached.", true},
    };
    ret = ReadKeys(*m_reading, text.Data(), keys, MEMINFO_PATH, log_handle);
    if (ret != 0) {
        return ret;
    }

    // Shared memory is counted inside Cached, but it is in use.
    const uint64_t total_kb = memory_info->total_mb;
    const uint64_t use_kb = shared_kb - (buffers_kb + free_kb) - cached_kb + total_kb;
    if (m_reading->memory_is_checked && (use_kb > total_kb || AnyAbove(keys, total_kb))) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "the figures do not fit each other, file: %s, MemTotal: %lu, MemFree: %lu, "
                    "Buffers: %lu, Cached: %lu, Shmem: %lu.",
                    MEMINFO_PATH, total_kb, free_kb, buffers_kb, cached_kb, shared_kb);
        memory_info->total_mb = 0;
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    memory_info->total_mb = total_kb >> KIB_TO_MIB_SHIFT;
    memory_info->use_mb = use_kb >> KIB_TO_MIB_SHIFT;
    return 0;
}

int32_t CMonitorPhysicalUtil::GetProcessMemoryInfo(ProcessMemoryInfo* process_memory_info,
                                                   uint32_t pid, LogCategory* log_handle) {
    if (process_memory_info == nullptr || pid == 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "process_memory_info is NULL or 0>= pid, process_memory_info: %p, pid: %u.",
                    static_cast<const void*>(process_memory_info), pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    process_memory_info->physical_memory_mb = 0;
    process_memory_info->virtual_memory_mb = 0;
    char file_path[MONITOR_NAME_LENGTH];
    FormatProcessPath(file_path, pid, "status");
    KernelText text(WholeText());
    int32_t ret = text.Fill([&](char* buffer, uint32_t length) {
        return ReadFromFile(buffer, length, file_path, log_handle, Buffer::Unset);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "ReadFromFile failed, file: %s.", file_path);
        return ret;
    }

    const MemoryKey keys[] = {
        {"VmSize", process_memory_info->virtual_memory_mb, "%s Can not find VmSize.",
         "%s Can not find \\n after VmSize."},
        {"VmRSS", process_memory_info->physical_memory_mb, "%s Can not find VmRSS.",
         "%s Can not find \\n after VmRSS."},
    };
    ret = ReadKeys(*m_reading, text.Data(), keys, file_path, log_handle);
    if (ret != 0) {
        return ret;
    }
    process_memory_info->virtual_memory_mb >>= KIB_TO_MIB_SHIFT;
    process_memory_info->physical_memory_mb >>= KIB_TO_MIB_SHIFT;
    return 0;
}

int32_t CMonitorPhysicalUtil::GetMemoryMonitorInfo(MemoryInfo* memory_info,
                                                   LogCategory* log_handle) {
    if (memory_info == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "memory_info is NULL.");
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    const int32_t ret = GetMemoryInfo(memory_info, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetMemoryInfo failed, ret: %d.", ret);
    }
    return ret;
}

int32_t CMonitorPhysicalUtil::GetProcessMemoryMonitorInfo(ProcessMemoryInfo* process_memory_info,
                                                          uint32_t pid, LogCategory* log_handle) {
    if (process_memory_info == nullptr || pid == 0 || !IsPIDValid(pid, log_handle)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "process_memory_info is NULL or 0>= pid or pid not exist, "
                    "process_memory_info: %p, pid: %u.",
                    static_cast<const void*>(process_memory_info), pid);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    const int32_t ret = GetProcessMemoryInfo(process_memory_info, pid, log_handle);
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "GetProcessMemoryInfo failed, ret: %d.", ret);
    }
    return ret;
}

}  // namespace CorvaneCommon
