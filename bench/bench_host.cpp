// What the monitor asks of its host: no log, and disk space from the standard library.
#include <filesystem>

#include "corvane_error_code.h"
#include "monitor_physical_util.h"

bool CategoryCanWrite(LogCategory* /*category*/, int32_t /*priority*/) {
    return false;
}

void CategoryLogV(LogCategory* /*category*/, int32_t /*priority*/, const char* /*file*/,
                  int32_t /*line*/, const char* /*function*/, const char* /*format*/,
                  va_list /*arguments*/) {}

int32_t GetDiskSize(uint64_t& total, uint64_t& free, const char* file_path,
                    LogCategory* /*log_handle*/) {
    constexpr uint64_t BYTES_PER_MIB = 1024 * 1024;
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(file_path, error);
    if (error) {
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    total = space.capacity / BYTES_PER_MIB;
    free = space.free / BYTES_PER_MIB;
    return 0;
}
