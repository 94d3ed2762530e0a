// What a service knows after a report's interval: plain figures, ready for any output.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

/// How much a figure is worth.
enum class FigureState {
    Fresh,   ///< the latest cycle measured it
    Stale,   ///< an earlier cycle of this interval did, the latest failed
    Failed,  ///< no cycle of this interval did
    Absent,  ///< nothing to measure: a directory without a disk, a process that does not run
};

/// How a family, figures that are measured or fail as one, fared in the interval.
struct FamilyStatus {
    FigureState state = FigureState::Failed;
    std::string reason;  ///< in words, why it is not fresh; empty when it is

    /// Whether the family's figures were measured at all. Without, they mean nothing.
    bool HasFigures() const { return state == FigureState::Fresh || state == FigureState::Stale; }
};

struct CoreFigures {
    std::string name;
    uint32_t percent = 0;  ///< latest cycle, at most 100
};

struct CpuFigures {
    FamilyStatus status;
    uint32_t core_number = 0;
    uint32_t peak_percent = 0;               ///< sum over the cores, highest cycle of the interval
    std::optional<uint32_t> latest_percent;  ///< sum over the cores, latest tiny cycle
    std::vector<CoreFigures> cores;          ///< empty when not asked for
};

/// MiB, as /proc/meminfo gives them; shared memory counts as used, cache and buffers do not.
struct MemoryFigures {
    FamilyStatus status;
    uint64_t total_mib = 0;
    uint64_t used_mib = 0;
};

/// The busiest interface of one direction in the busiest cycle of the interval.
struct TrafficPeak {
    uint64_t bytes_per_second = 0;
    std::string interface;  ///< empty: no traffic
};

/// One interface in the latest cycle.
struct InterfaceFigures {
    std::string name;
    uint64_t receive_bytes_per_second = 0;
    uint64_t transmit_bytes_per_second = 0;
    uint64_t receive_packets_per_second = 0;
    uint64_t transmit_packets_per_second = 0;
};

struct NetworkFigures {
    FamilyStatus status;
    TrafficPeak receive;
    TrafficPeak transmit;
    std::vector<InterfaceFigures> interfaces;  ///< every one measured in the latest cycle
};

struct DirectoryFigures {
    std::string directory;
    std::string disk;  ///< the device that holds it; an array's own name; empty: none, or unknown
    FamilyStatus io;   ///< Absent where no disk is behind it: tmpfs, nfs and the like
    uint32_t busy_percent = 0;  ///< latest cycle
    uint32_t operations_per_second = 0;
    FamilyStatus space;
    uint64_t total_bytes = 0;
    uint64_t used_bytes = 0;       ///< as df counts it
    uint64_t available_bytes = 0;  ///< to an ordinary user: without what is kept for root
};

struct ProcessFigures {
    std::string target;  ///< as it was asked for: a pid, a pid file's path, a unit's name
    uint32_t pid = 0;    ///< 0: not running
    std::string command;
    bool running = false;
    FamilyStatus cpu;                            ///< Absent while it does not run
    int32_t cpu_peak_percent = 0;                ///< of one core
    std::optional<int32_t> thread_peak_percent;  ///< busiest thread, at most 100; empty: unknown
    FamilyStatus memory;
    uint64_t resident_mib = 0;
    uint64_t virtual_mib = 0;
};

struct Report {
    std::chrono::system_clock::time_point time;         ///< wall clock, for people
    std::chrono::steady_clock::time_point measured_at;  ///< for the age
    uint64_t interval_seconds = 0;                      ///< that the peaks span
    CpuFigures cpu;
    MemoryFigures memory;
    NetworkFigures network;
    std::vector<DirectoryFigures> directories;
    std::vector<ProcessFigures> processes;
    std::vector<std::string> notes;  ///< what holds now and the reader should know, in words
};

/// A family by its name: "cpu", "memory", "network", "disk_io:DIRECTORY", "disk_space:DIRECTORY",
/// "process_cpu:TARGET", "process_memory:TARGET".
struct Family {
    std::string name;
    FamilyStatus status;
};

/// All families of a report, in the order of its fields.
std::vector<Family> Families(const Report& report);

}  // namespace corvane
