// The host's answer to how large a file system is and how much of it is free.
#include <cstdint>
#include <cstring>
#include <filesystem>

#include "corvane_error_code.h"
#include "host_logging.h"
#include "monitor_physical_util.h"

namespace {

constexpr uint64_t BYTES_PER_MIB = uint64_t{1024} * 1024;

void LogFailure(LogCategory* category, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

void LogFailure(LogCategory* category, const char* format, ...) {
    if (category == nullptr || !CategoryCanWrite(category, LOG_PRIORITY_ERROR)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    CategoryLogV(category, LOG_PRIORITY_ERROR, __FILE__, __LINE__, "GetDiskSize", format,
                 arguments);
    va_end(arguments);
}

}  // namespace

int32_t GetDiskSize(uint64_t& total, uint64_t& free, const char* file_path,
                    LogCategory* log_handle) {
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(file_path, error);
    if (error) {
        LogFailure(log_handle, "space of %s failed, error_msg: %s.", file_path,
                   error.message().c_str());
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    // `free` counts the blocks reserved for the superuser, so that total minus free is what df
    // calls "Used". Both are whole MiB, truncated.
    total = space.capacity / BYTES_PER_MIB;
    free = space.free / BYTES_PER_MIB;
    return 0;
}
