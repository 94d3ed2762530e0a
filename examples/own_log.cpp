// A server with a log of its own: it defines the three functions that the monitor asks of its host
// and links corvane::monitor alone.
#include <sys/statvfs.h>

#include <cstdio>

#include "corvane_error_code.h"
#include "monitor_physical_util.h"

struct ServerLog : LogCategory {
    std::FILE* file = stdout;
};

bool CategoryCanWrite(LogCategory* /*category*/, int32_t priority) {
    return priority <= LOG_PRIORITY_WARN;
}

void CategoryLogV(LogCategory* category, int32_t priority, const char* file, int32_t line,
                  const char* /*function*/, const char* format, va_list arguments) {
    std::FILE* const out = static_cast<ServerLog*>(category)->file;
    std::fprintf(out, "monitor [%d] %s:%d ", priority, file, line);
    std::vfprintf(out, format, arguments);
    std::fputc('\n', out);
}

// Whole MiB. What is kept for the superuser counts as free, so that the rest is what df calls used.
int32_t GetDiskSize(uint64_t& total, uint64_t& free, const char* file_path, LogCategory*) {
    struct statvfs space {};
    if (statvfs(file_path, &space) != 0) {
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    total = (space.f_blocks * space.f_frsize) >> 20U;
    free = (space.f_bfree * space.f_frsize) >> 20U;
    return 0;
}

int main() {
    ServerLog log;
    auto* const monitor = CorvaneCommon::CMonitorPhysicalUtil::GetInstance();
    CorvaneCommon::MemoryInfo memory;
    CorvaneCommon::DiskInfoResult disk;
    if (monitor->GetMemoryMonitorInfo(&memory, &log) != 0 ||
        monitor->GetDiskMonitorInfo(&disk, "/", &log) != 0) {
        return 1;  // the log says why
    }
    std::printf("memory %lu of %lu MiB, disk %lu of %lu MiB\n", memory.use_mb, memory.total_mb,
                disk.use_mb, disk.total_mb);
    CorvaneCommon::ProcessMemoryInfo process;
    monitor->GetProcessMemoryMonitorInfo(&process, 0, &log);  // no such process: a record says so
}
