#include "parser_check.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>

#include "fuzz_check.h"
#include "monitor_physical_util_internal.h"

namespace corvane_fuzz {

namespace {

using namespace CorvaneCommon;

constexpr int MAX_LINES = 8;

// What a number holds that was not read: parsers promise not to touch it.
constexpr uint64_t UNREAD = 0x5555555555555555;

/// Both sides of one comparison: a name and up to eleven numbers.
struct Fields {
    Fields() { std::fill(std::begin(numbers), std::end(numbers), UNREAD); }

    char name[MONITOR_NAME_LENGTH] = {};
    uint64_t numbers[11];
};

void CheckSame(const char* line, bool ours_complete, const Fields& ours, bool theirs_complete,
               const Fields& theirs) {
    FUZZ_CHECK(ours_complete == theirs_complete, line);
    FUZZ_CHECK(strcmp(ours.name, theirs.name) == 0, line);
    FUZZ_CHECK(std::equal(std::begin(ours.numbers), std::end(ours.numbers), theirs.numbers), line);
}

void CheckCPULine(const char* line) {
    Fields ours;
    Fields theirs;
    CPUInfo info;
    uint64_t* const columns[] = {&info.user,   &info.nice, &info.system, &info.idle,
                                 &info.iowait, &info.irq,  &info.softirq};
    for (uint64_t* const column : columns) {
        *column = UNREAD;
    }
    const bool complete = ParseCPULine(line, info);
    std::transform(std::begin(columns), std::end(columns), ours.numbers,
                   [](const uint64_t* column) { return *column; });
    memcpy(ours.name, info.cpu_core_name, sizeof(ours.name));
    uint64_t* const n = theirs.numbers;
    const int count = sscanf(line, "%127s %lu %lu %lu %lu %lu %lu %lu", theirs.name, &n[0], &n[1],
                             &n[2], &n[3], &n[4], &n[5], &n[6]);
    CheckSame(line, complete, ours, count == 8, theirs);
}

void CheckDiskLine(const char* line) {
    Fields ours;
    Fields theirs;
    DiskIOInfo info;
    uint64_t* const columns[] = {&info.reads_completed,
                                 &info.reads_merged,
                                 &info.sectors_read,
                                 &info.time_spent_reading,
                                 &info.writes_completed,
                                 &info.writes_merged,
                                 &info.sectors_written,
                                 &info.time_spent_writing,
                                 &info.ios_currently_in_progress,
                                 &info.time_spent_doing_ios,
                                 &info.weighted_time_spent_doing_ios};
    for (uint64_t* const column : columns) {
        *column = UNREAD;
    }
    const bool complete = ParseDiskLine(line, info);
    std::transform(std::begin(columns), std::end(columns), ours.numbers,
                   [](const uint64_t* column) { return *column; });
    memcpy(ours.name, info.device_name, sizeof(ours.name));
    uint64_t* const n = theirs.numbers;
    const int count =
        sscanf(line, "%127s %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu", theirs.name, &n[0], &n[1],
               &n[2], &n[3], &n[4], &n[5], &n[6], &n[7], &n[8], &n[9], &n[10]);
    CheckSame(line, complete, ours, count == 12, theirs);
}

void CheckNetworkCounters(const char* text) {
    Fields ours;
    Fields theirs;
    NetworkInfo info;
    info.input_bytes = info.input_packets = info.output_bytes = info.output_packets = UNREAD;
    const bool complete = ParseNetworkCounters(text, info);
    const uint64_t columns[] = {info.input_bytes, info.input_packets, info.output_bytes,
                                info.output_packets};
    std::copy(std::begin(columns), std::end(columns), ours.numbers);
    uint64_t* const n = theirs.numbers;
    const int count =
        sscanf(text, "%lu %lu %*u %*u %*u %*u %*u %*u %lu %lu", &n[0], &n[1], &n[2], &n[3]);
    CheckSame(text, complete, ours, count == 4, theirs);
}

void CheckProcessTimes(const char* line) {
    Fields ours;
    Fields theirs;
    ProcessCPUInfo info;
    info.user = info.system = info.user_wait = info.system_wait = UNREAD;
    const bool complete = ParseProcessTimes(line, info);
    const uint64_t columns[] = {info.user, info.system, info.user_wait, info.system_wait};
    std::copy(std::begin(columns), std::end(columns), ours.numbers);
    uint64_t* const n = theirs.numbers;
    const int count =
        sscanf(line, "%*u %*s %*s %*u %*u %*u %*u %*u %*u %*u %*u %*u %*u %lu %lu %lu %lu", &n[0],
               &n[1], &n[2], &n[3]);
    CheckSame(line, complete, ours, count == 4, theirs);

    uint64_t user = UNREAD;
    uint64_t system = UNREAD;
    FUZZ_CHECK(ParseThreadTimes(line, user, system) == (count >= 2), line);
    FUZZ_CHECK(user == n[0] && system == n[1], line);
}

void CheckKeyValue(const char* line) {
    uint64_t ours = UNREAD;
    uint64_t theirs = UNREAD;
    const bool complete = ParseKeyValue(line, ours);
    FUZZ_CHECK(complete == (sscanf(line, "%*s %lu", &theirs) == 1), line);
    FUZZ_CHECK(ours == theirs, line);
}

void CheckMountLine(const char* line) {
    char device[MONITOR_NAME_LENGTH] = {};
    char mount_point[MONITOR_NAME_LENGTH] = {};
    const bool complete = ParseMountLine(line, device, mount_point);
    // sscanf has no way to cut a word and skip its rest, so the words are cut out here.
    std::string longest(strlen(line) + 1, '\0');
    std::string second(strlen(line) + 1, '\0');
    const int count = sscanf(line, "%s %s", longest.data(), second.data());
    FUZZ_CHECK(complete == (count == 2), line);
    if (complete) {
        FUZZ_CHECK(longest.substr(0, sizeof(device) - 1).c_str() == std::string(device), line);
        FUZZ_CHECK(second.substr(0, sizeof(device) - 1).c_str() == std::string(mount_point), line);
    }
}

}  // namespace

void CheckParsers(std::string_view text) {
    for (int i = 0; i < MAX_LINES && !text.empty(); ++i) {
        const size_t length = std::min(text.find('\n'), text.size());
        const std::string line(text.substr(0, length));
        text.remove_prefix(std::min(length + 1, text.size()));
        CheckCPULine(line.c_str());
        CheckDiskLine(line.c_str());
        const char* const colon = strchr(line.c_str(), ':');
        CheckNetworkCounters(colon == nullptr ? line.c_str() : colon + 1);
        CheckProcessTimes(line.c_str());
        CheckKeyValue(line.c_str());
        CheckMountLine(line.c_str());
    }
}

}  // namespace corvane_fuzz
