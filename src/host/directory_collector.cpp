#include "directory_collector.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <utility>

#include "kernel_names.h"
#include "text_file.h"

namespace corvane {

namespace {

using CorvaneCommon::MONITOR_NAME_LENGTH;

constexpr uint64_t PERCENT = 100;
constexpr const char* TABLE = "/proc/diskstats";
constexpr const char* MOUNT_TABLE = "/etc/mtab";
constexpr const char* NEW_DISK = "found in the latest cycle, measured from the next one on";
constexpr const char* NO_DISK =
    "no block device is behind it, as on tmpfs or a network's file system";

}  // namespace

DirectoryCollector::DirectoryCollector(Monitor& monitor, const ServiceSettings& settings)
    : m_monitor(monitor), m_settings(settings), m_mount_table(AskText, MOUNT_TABLE) {
    for (const std::string& path : settings.directories) {
        m_directories.emplace_back(path);
    }
}

// The strict reading touches a directory when it is registered and never again; what it is asked
// for a report tells its space, and whether another file system has been mounted there.

void DirectoryCollector::Ask(Clock::time_point now, bool report_due) {
    for (Directory& directory : m_directories) {
        directory.asked = m_settings.compatible || !directory.registered || report_due;
        if (directory.asked) {
            directory.probe.Ask(now);
        }
    }
}

void DirectoryCollector::Listen(Clock::time_point now,
                                std::chrono::steady_clock::time_point deadline) {
    for (Directory& directory : m_directories) {
        directory.answer = directory.asked ? directory.probe.Take(deadline) : std::nullopt;
        if (directory.asked && !directory.answer) {
            directory.io.Failed(directory.probe.Silence(now));
        } else if (directory.answer && !directory.Answers()) {
            directory.io.Failed(directory.answer->trouble.text);
        }
    }
}

void DirectoryCollector::RunCycle(Clock::time_point now,
                                  std::chrono::steady_clock::time_point deadline) {
    m_settings.compatible ? MeasureOneByOne(now) : MeasureTogether(now);
    RegisterNew(now, deadline);
}

void DirectoryCollector::MeasureTogether(Clock::time_point now) {
    std::vector<const char*> paths;
    for (const Directory& directory : m_directories) {
        if (!directory.disk.empty()) {
            paths.push_back(directory.path.c_str());
        }
    }
    const Elapsed elapsed(m_since, now);
    const int32_t status =
        m_monitor.CalcDiskIOMonitorInfo(paths, elapsed.Whole(), true, m_settings.log);
    if (status == 0) {
        m_since = now;
    }
    for (Directory& directory : m_directories) {
        if (!directory.registered) {
            continue;
        }
        if (directory.disk.empty()) {
            directory.io.Absent(NO_DISK);
        } else if (status == 0) {
            Keep(directory, elapsed);
        } else {
            directory.io.Failed(WhyNothingCameOf(TABLE, "cannot parse /proc/diskstats"));
        }
    }
}

/// Two directories on one disk share a figure: the second would measure it over no time.
void DirectoryCollector::MeasureOneByOne(Clock::time_point now) {
    std::map<std::string, const Directory*> measured;
    for (Directory& directory : m_directories) {
        if (!directory.registered || !directory.Answers()) {
            continue;
        }
        const auto same_disk = measured.find(directory.disk);
        if (same_disk != measured.end()) {
            directory.busy_percent = same_disk->second->busy_percent;
            directory.operations_per_second = same_disk->second->operations_per_second;
            directory.io.Measured();
            continue;
        }
        Clock::time_point& since = m_since_of[directory.disk];
        const Elapsed elapsed(since, now);
        if (m_monitor.CalcDiskIOMonitorInfo(directory.path.c_str(), elapsed.Whole(), true,
                                            m_settings.log) == 0) {
            Keep(directory, elapsed);
            since = now;
            measured[directory.disk] = &directory;
        } else if (major(directory.device) == 0) {
            directory.io.Absent(NO_DISK);
        } else {
            directory.io.Failed(WhyNotMeasured(directory));
        }
    }
}

void DirectoryCollector::Keep(Directory& directory, const Elapsed& elapsed) {
    CorvaneCommon::DiskIOInfoResult io;
    if (m_monitor.GetDiskIOMonitorInfo(&io, directory.path.c_str(), m_settings.log) != 0) {
        directory.io.Failed(WhyNotMeasured(directory));
        return;
    }
    directory.busy_percent = std::min(PERCENT, elapsed.Correct(io.disk_io_rate));
    directory.operations_per_second = elapsed.Correct(io.disk_iops);
    directory.measured_line = io.disk_name;
    directory.io.Measured();
}

void DirectoryCollector::RegisterNew(Clock::time_point now,
                                     std::chrono::steady_clock::time_point deadline) {
    std::optional<std::string> trouble;  // of the mount table, asked for once
    for (Directory& directory : m_directories) {
        const bool known = directory.registered && directory.answer &&
                           directory.answer->device == directory.device;
        if (!directory.Answers() || known) {
            continue;
        }
        if (!trouble) {
            trouble = m_settings.compatible ? MountTableTrouble(now, deadline) : "";
        }
        if (trouble->empty()) {
            Register(directory, now);
        } else {
            directory.io.Failed("its disk is not known: " + *trouble);
        }
    }
}

/// Why the compatible reading could not read the mount table, or would wait for it.
std::string DirectoryCollector::MountTableTrouble(Clock::time_point now,
                                                  std::chrono::steady_clock::time_point deadline) {
    m_mount_table.Ask(now);
    const auto answer = m_mount_table.Take(deadline);
    return answer ? answer->trouble.text
                  : std::string(MOUNT_TABLE) + " " + m_mount_table.Silence(now);
}

void DirectoryCollector::Register(Directory& directory, Clock::time_point now) {
    const char* path = directory.path.c_str();
    char disk[MONITOR_NAME_LENGTH] = {};
    const int32_t status = m_monitor.SetDiskInfo(&path, 1, m_settings.log);
    const int32_t name_status =
        m_monitor.GetDiskNameByFileName(disk, sizeof(disk), path, m_settings.log);
    directory.device = directory.answer->device;
    directory.registered =
        name_status == COMMON_ERR_NO_BLOCK_DEVICE || (status == 0 && name_status == 0);
    directory.disk = directory.registered ? disk : "";
    if (name_status == COMMON_ERR_NO_BLOCK_DEVICE) {
        directory.io.Absent(NO_DISK);
    } else if (directory.registered) {
        directory.io.Failed(NEW_DISK);
        m_since_of.emplace(directory.disk, now);
    } else {
        const std::string number =
            std::to_string(major(directory.device)) + ":" + std::to_string(minor(directory.device));
        directory.io.Failed(
            "its disk is not known: " +
            WhyNothingCameOf(TABLE, m_settings.compatible
                                        ? "no mount in /etc/mtab holds it"
                                        : "device " + number + " has no line in /proc/diskstats"));
    }
}

std::string DirectoryCollector::WhyNotMeasured(const Directory& directory) {
    return WhyNothingCameOf(TABLE, "its disk " + directory.disk +
                                       " has no line in /proc/diskstats, or its counters fell");
}

std::vector<DirectoryFigures> DirectoryCollector::Take(Clock::time_point now,
                                                       std::vector<std::string>& notes) {
    std::vector<DirectoryFigures> all;
    for (Directory& directory : m_directories) {
        DirectoryFigures figures;
        figures.directory = directory.path;
        figures.io = directory.io.Take();
        figures.busy_percent = static_cast<uint32_t>(directory.busy_percent);
        figures.operations_per_second = static_cast<uint32_t>(directory.operations_per_second);
        if (figures.io.state != FigureState::Absent) {
            figures.disk = directory.disk;
        }
        if (!directory.answer) {
            figures.io = {FigureState::Failed, directory.probe.Silence(now)};
            figures.space = figures.io;
        } else {
            TakeSpace(figures, *directory.answer);
        }
        Note(figures, directory, notes);
        all.push_back(std::move(figures));
    }
    return all;
}

void DirectoryCollector::TakeSpace(DirectoryFigures& figures, const PathAnswer& answer) {
    if (!answer.trouble.text.empty()) {
        figures.space = {FigureState::Failed, answer.trouble.text};
    } else if (answer.total_bytes == 0) {
        figures.space = {FigureState::Absent,
                         "its file system has no space, as those of the kernel"};
    } else {
        figures.space = {FigureState::Fresh, ""};
    }
    figures.total_bytes = answer.total_bytes;
    figures.used_bytes = answer.used_bytes;
    figures.available_bytes = answer.available_bytes;
}

void DirectoryCollector::Note(const DirectoryFigures& figures, const Directory& directory,
                              std::vector<std::string>& notes) const {
    const std::string start = "directory " + figures.directory + ": ";
    if (!figures.io.HasFigures() && figures.io.reason != NEW_DISK) {
        notes.push_back(start + WithoutDuration(figures.io.reason));
    }
    if (!figures.space.HasFigures() && figures.space.reason != figures.io.reason) {
        notes.push_back(start + figures.space.reason);
    }
    // An array is measured by its members, and then no line is named.
    if (m_settings.compatible && figures.io.HasFigures() && !directory.measured_line.empty()) {
        const std::string line = MeasuredDiskName(ReadWholeFile(TABLE), directory.disk);
        if (!IsDiskOrPartition(directory.disk, line)) {
            notes.push_back(start + "its disk " + directory.disk +
                            " is measured by the line of another disk, " + line +
                            ": do not trust its load");
        }
    }
}

}  // namespace corvane
