// What the program knows after a report's interval: plain figures, ready for any output.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane_host {

/// How much a figure is worth.
enum class FigureState {
    Fresh,   ///< the latest cycle measured it
    Stale,   ///< an earlier cycle of this interval did, the latest failed
    Failed,  ///< no cycle of this interval did
};

struct CoreFigures {
    std::string name;
    uint32_t percent = 0;
};

struct CpuFigures {
    FigureState state = FigureState::Failed;
    uint32_t core_number = 0;
    uint32_t peak_percent = 0;               ///< sum over the cores, highest cycle of the interval
    std::optional<uint32_t> latest_percent;  ///< sum over the cores, latest tiny cycle
    std::vector<CoreFigures> cores;          ///< empty when not asked for
};

struct MemoryFigures {
    FigureState state = FigureState::Failed;
    uint64_t total_mib = 0;
    uint64_t used_mib = 0;
};

/// Rates of one direction: megabits (10^6 bits) per second.
struct NetworkPeak {
    uint64_t megabits_per_second = 0;
    std::string interface;  ///< empty: no traffic
};

struct InterfaceRates {
    uint64_t receive_megabits_per_second = 0;
    uint64_t transmit_megabits_per_second = 0;
    uint64_t receive_packets_per_second = 0;
    uint64_t transmit_packets_per_second = 0;
};

struct NetworkFigures {
    FigureState state = FigureState::Failed;
    NetworkPeak receive;
    NetworkPeak transmit;
    std::optional<InterfaceRates> eth1;  ///< latest tiny cycle; empty without such an interface
};

struct DirectoryFigures {
    std::string directory;
    std::string disk;  ///< the device that holds it; an array's own name; empty: unknown
    FigureState io_state = FigureState::Failed;
    uint32_t busy_percent = 0;
    uint32_t operations_per_second = 0;
    FigureState space_state = FigureState::Failed;
    uint64_t total_mib = 0;
    uint64_t used_mib = 0;
};

struct ProcessFigures {
    uint32_t pid = 0;
    std::string command;
    bool gone = false;  ///< did not exist, or went away: never measured again
    FigureState cpu_state = FigureState::Failed;
    int32_t cpu_peak_percent = 0;     ///< of one core
    int32_t thread_peak_percent = 0;  ///< busiest thread, at most 100
    FigureState memory_state = FigureState::Failed;
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
    std::vector<std::string> notes;  ///< in words, for people; each stands once
};

/// A part of a report that succeeds or fails as one: "cpu", "memory", "network",
/// "disk_io:DIRECTORY", "disk_space:DIRECTORY", "process_cpu:PID", "process_memory:PID".
struct FamilyState {
    std::string name;
    FigureState state;
};
std::vector<FamilyState> FamilyStates(const Report& report);

}  // namespace corvane_host
