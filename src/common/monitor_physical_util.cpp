// The instance and the helpers that every reader of a kernel file goes through.
#include "monitor_physical_util.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include "monitor_physical_util_internal.h"
#include "monitor_physical_util_log.h"
#include "monitor_physical_util_text.h"

static_assert(sizeof(long) == sizeof(uint64_t) && sizeof(void*) == sizeof(uint64_t),
              "the formats of the log texts assume LP64");

namespace CorvaneCommon {

CMonitorPhysicalUtil* CMonitorPhysicalUtil::GetInstance() {
    static CMonitorPhysicalUtil instance;
    return &instance;
}

CMonitorPhysicalUtil::CMonitorPhysicalUtil() {
    InitCMonitorPhysicalUtil();
}

void CMonitorPhysicalUtil::InitCMonitorPhysicalUtil() {
    // A discovery that fails leaves the instance usable with what it found.
    InitDefaultNetWorkInfo(nullptr);
    InitDefaultCPUInfo(nullptr);
    m_total_disk_num = 0;
    memset(m_disk_name, 0, sizeof(m_disk_name));
}

uint32_t CMonitorPhysicalUtil::GetCPUCoreNum() {
    return static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN));
}

const char* CMonitorPhysicalUtil::GetDefaultDiskFilePath() const {
    return "/";
}

int32_t CMonitorPhysicalUtil::ReadFromFile(char* file_content, uint32_t file_content_length,
                                           const char* file_path, LogCategory* log_handle,
                                           Buffer buffer) {
    if (file_content_length == 0 || file_content == nullptr || IsEmpty(file_path)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "file_content is NULL or 0 >= file_content_length or file_path is NULL, "
                    "file_content: %p, file_content_length: %u, file_path: %p.",
                    static_cast<const void*>(file_content), file_content_length,
                    static_cast<const void*>(file_path));
        // Not INVALID_ARGUMENTS: callers know only one kind of failure from a read.
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    file_content[0] = '\0';
    const std::unique_ptr<FILE, void (*)(FILE*)> stream(fopen(file_path, "r"), &CloseFd);
    if (stream == nullptr) {
        const int error = errno;
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "fopen %s failed, error_msg: %s.", file_path,
                    strerror(error));
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    // Unbuffered, the kernel writes straight into the caller's buffer, without a second one.
    setvbuf(stream.get(), nullptr, _IONBF, 0);
    // Kernel files end before the buffer does: only an error makes a short read a failure.
    const size_t length = fread(file_content, 1, file_content_length, stream.get());
    if (length < file_content_length && ferror(stream.get()) != 0) {
        const int error = errno;
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "fread failed, file: %s, errno: %d.", file_path,
                    error);
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    // Only the last byte of a cleared buffer: it ends a shorter text by itself.
    file_content[file_content_length - 1] = '\0';
    if (buffer == Buffer::Unset && length < file_content_length) {
        file_content[length] = '\0';
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::GetRealFilePath(char* real_file_path, uint32_t real_file_path_length,
                                              const char* file_path, LogCategory* log_handle) {
    if (real_file_path_length == 0 || file_path == nullptr || real_file_path == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "real_file_path is NULL or real_file_path_length <=0 or file_path is NULL, "
                    "real_file_path: %p, file path: %p, real_file_path_length: %u.",
                    static_cast<const void*>(real_file_path), static_cast<const void*>(file_path),
                    real_file_path_length);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    if (!IsFileExist(file_path)) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "file_path is not exist, file_path: %s.",
                    file_path);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    char platform_path[PATH_MAX];
    if (realpath(file_path, platform_path) == nullptr) {
        const int error = errno;
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "%s can not resolved to real path, error_msg: %s.", file_path, strerror(error));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    char resolved[MONITOR_NAME_LENGTH] = {};
    CopyName(resolved, platform_path);
    // A resolved path is no link, unless it was cut or replaced meanwhile.
    char target[MONITOR_NAME_LENGTH] = {};
    const ssize_t length = readlink(resolved, target, sizeof(target));
    const bool is_link = length >= 0 && length < static_cast<ssize_t>(sizeof(target));
    CopyText(real_file_path, real_file_path_length, is_link ? target : resolved);
    return 0;
}

bool CMonitorPhysicalUtil::IsFileExist(const char* file_path) {
    return file_path != nullptr && access(file_path, F_OK) == 0;
}

bool CMonitorPhysicalUtil::IsPIDValid(uint32_t pid, LogCategory* /*log_handle*/) {
    char file_path[MONITOR_NAME_LENGTH];
    FormatProcessPath(file_path, pid, "");
    return IsFileExist(file_path);
}

void CMonitorPhysicalUtil::CloseFd(FILE* fd) {
    if (fd != nullptr) {
        fclose(fd);
    }
}

void CMonitorPhysicalUtil::ClosePipeFd(FILE* fd) {
    if (fd != nullptr) {
        pclose(fd);
    }
}

int32_t CMonitorPhysicalUtil::DiscoverLines(const char* file_path,
                                            const std::vector<std::string>& names, size_t max_names,
                                            const char* limit_text, StoreLine store_line,
                                            LogCategory* log_handle) {
    std::ifstream stream(file_path);
    if (!stream.is_open()) {
        const int error = errno;
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "open %s failed, error_msg: %s.", file_path,
                    strerror(error));
        return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
    }
    std::string line;
    line.reserve(FILE_BUFFER_LENGTH);  // getline takes a failed allocation for a bad stream
    while (!stream.eof()) {
        if (names.size() >= max_names) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, limit_text, names.size());
            return COMMON_ERR_INVALID_ARGUMENTS;
        }
        if (stream.fail()) {
            MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                        "getline from %s failed, the failbit is %d and the badbit is %d", file_path,
                        1, stream.bad() ? 1 : 0);
            return COMMON_ERR_LINUX_SYSTEM_CALL_FAIL;
        }
        std::getline(stream, line);
        const int32_t ret = (this->*store_line)(line, log_handle);
        if (ret != 0) {
            return ret;
        }
    }
    return 0;
}

}  // namespace CorvaneCommon
