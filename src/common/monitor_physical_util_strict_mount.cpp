// The mounts that directories lie on (/proc/self/mountinfo), and the devices behind them.
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "monitor_physical_util.h"
#include "monitor_physical_util_internal.h"
#include "monitor_physical_util_log.h"
#include "monitor_physical_util_reading.h"
#include "monitor_physical_util_text.h"

namespace CorvaneCommon {

namespace {

constexpr const char* MOUNT_INFO_PATH = "/proc/self/mountinfo";
constexpr const char* DEVICE_FOLDER = "/dev/";

std::string DecodeEscapes(const std::string& text) {
    constexpr size_t OCTAL_DIGITS = 3;
    constexpr int OCTAL = 8;
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        const std::string digits = text.substr(i + 1, OCTAL_DIGITS);
        if (text[i] == '\\' && digits.size() == OCTAL_DIGITS &&
            digits.find_first_not_of("01234567") == std::string::npos) {
            decoded += static_cast<char>(strtol(digits.c_str(), nullptr, OCTAL));
            i += OCTAL_DIGITS;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

/// Whether a mount point is a path or above it.
bool IsAbove(const std::string& mount_point, const char* path) {
    const size_t length = mount_point.size();
    return strncmp(path, mount_point.c_str(), length) == 0 &&
           (mount_point == "/" || path[length] == '/' || path[length] == '\0');
}

}  // namespace

bool ParseMountEntry(const char* line, MountEntry& entry) {
    if (!ScanNumber(line, entry.id) || !ScanNumber(line, entry.parent_id)) {
        return false;
    }
    TakeWord(line);  // device number: not the one that stat tells on btrfs
    TakeWord(line);  // which folder of the file system
    entry.mount_point = DecodeEscapes(TakeWord(line));
    // Options and tags, of any number, end at a dash.
    for (std::string word = TakeWord(line); word != "-"; word = TakeWord(line)) {
        if (word.empty()) {
            return false;
        }
    }
    entry.file_system = DecodeEscapes(TakeWord(line));
    entry.source = DecodeEscapes(TakeWord(line));
    return !entry.mount_point.empty() && !entry.file_system.empty();
}

const MountEntry* FindMount(const std::vector<MountEntry>& mounts, const char* path) {
    std::vector<uint64_t> ids;
    ids.reserve(mounts.size());
    for (const MountEntry& mount : mounts) {
        ids.push_back(mount.id);
    }
    std::sort(ids.begin(), ids.end());
    const auto is_root = [&](const MountEntry& mount) {
        return mount.id == mount.parent_id ||
               !std::binary_search(ids.begin(), ids.end(), mount.parent_id);
    };
    // As the kernel walks a path: into each mount as it meets its mount point, so that what lies
    // below another one that was mounted over it is not seen. Never more steps than mounts.
    const MountEntry* found = nullptr;
    for (size_t step = 0; step < mounts.size(); ++step) {
        const MountEntry* next = nullptr;
        for (const MountEntry& mount : mounts) {
            const bool is_below = found == nullptr ? is_root(mount) : mount.parent_id == found->id;
            if (is_below && &mount != found && IsAbove(mount.mount_point, path) &&
                (next == nullptr || mount.mount_point.size() <= next->mount_point.size())) {
                next = &mount;
            }
        }
        if (next == nullptr) {
            break;
        }
        found = next;
    }
    return found;
}

int32_t CMonitorPhysicalUtil::ReadMounts(std::vector<MountEntry>& mounts, LogCategory* log_handle) {
    KernelText text(WholeText());
    const int32_t ret = text.Fill([&](char* mount_info, uint32_t length) {
        return ReadFromFile(mount_info, length, MOUNT_INFO_PATH, log_handle, Buffer::Unset);
    });
    if (ret != 0) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "ReadFromFile failed, file: %s.",
                    MOUNT_INFO_PATH);
        return ret;
    }
    for (char *line = text.Data(), *next = nullptr; line != nullptr; line = next) {
        next = CutLine(line);
        MountEntry entry;
        if (ParseMountEntry(line, entry)) {
            mounts.push_back(std::move(entry));
        }
    }
    return 0;
}

int32_t CMonitorPhysicalUtil::FindDirectory(RegisteredPath& directory,
                                            std::vector<MountEntry>& mounts,
                                            LogCategory* log_handle) {
    const char* const file_path = directory.file_path;
    struct stat status = {};
    char real_file_path[PATH_MAX];
    if (stat(file_path, &status) != 0 || realpath(file_path, real_file_path) == nullptr) {
        const int error = errno;
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR,
                    "%s can not resolved to real path, error_msg: %s.", file_path, strerror(error));
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    directory.real_path = real_file_path;
    directory.device_number = status.st_dev;
    if (major(status.st_dev) != 0) {
        return 0;
    }
    // A number that the file system made up: its mount tells the device, if it has one.
    directory.device_number = 0;
    if (mounts.empty()) {
        const int32_t ret = ReadMounts(mounts, log_handle);
        if (ret != 0) {
            return ret;
        }
    }
    const MountEntry* const mount = FindMount(mounts, real_file_path);
    if (mount == nullptr) {
        MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "Can not find the mount of %s in %s.",
                    file_path, MOUNT_INFO_PATH);
        return COMMON_ERR_INVALID_ARGUMENTS;
    }
    directory.file_system = mount->file_system;
    const char* const source = mount->source.c_str();
    if (*source != '/') {
        return 0;
    }
    if (stat(source, &status) == 0) {
        directory.device_number = S_ISBLK(status.st_mode) ? status.st_rdev : 0;
        return 0;
    }
    if (strncmp(source, DEVICE_FOLDER, strlen(DEVICE_FOLDER)) != 0) {
        return 0;  // as "//server/share"
    }
    const int error = errno;
    MONITOR_LOG(log_handle, LOG_PRIORITY_ERROR, "stat %s failed, error_msg: %s, file_path: %s.",
                source, strerror(error), file_path);
    return COMMON_ERR_INVALID_ARGUMENTS;
}

}  // namespace CorvaneCommon
