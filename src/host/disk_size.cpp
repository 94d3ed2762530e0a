// The host's answer to how large a file system is and how much of it is free.
#include <sys/statvfs.h>

#include <cerrno>
#include <system_error>

#include "monitor_physical_util.h"
#include "monitor_physical_util_log.h"

namespace {

constexpr uint64_t BYTES_PER_MIB = uint64_t{1024} * 1024;

}  // namespace

int32_t GetDiskSize(uint64_t& total, uint64_t& free, const char* file_path,
                    LogCategory* log_handle) {
    struct statvfs space = {};
    if (statvfs(file_path, &space) != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "statvfs of %s failed, error_msg: %s.",
                    file_path, std::generic_category().message(errno).c_str());
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    // `free` counts the blocks reserved for the superuser, so that total minus free is what df
    // calls "Used". Both are whole MiB, truncated.
    total = space.f_blocks * space.f_frsize / BYTES_PER_MIB;
    free = space.f_bfree * space.f_frsize / BYTES_PER_MIB;
    return 0;
}
