#include "parser_check.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "monitor_physical_util_internal.h"

namespace corvane_fuzz {

namespace {

using namespace CorvaneCommon;

constexpr int MAX_LINES = 8;
// What a number holds that was not read: parsers promise not to touch it.
constexpr uint64_t UNREAD = 0x5555555555555555;

/// Compares a parser with sscanf: whether all numbers were read, and each of them.
template <typename Parse>
void CheckNumbers(const std::string& line, const char* format,
                  const std::vector<uint64_t*>& numbers, const Parse& parse) {
    uint64_t n[11];
    std::fill(std::begin(n), std::end(n), UNREAD);
    std::for_each(numbers.begin(), numbers.end(), [](uint64_t* number) { *number = UNREAD; });
    const int read = sscanf(line.c_str(), format, &n[0], &n[1], &n[2], &n[3], &n[4], &n[5], &n[6],
                            &n[7], &n[8], &n[9], &n[10]);
    FUZZ_CHECK(parse(line.c_str()) == (read == static_cast<int>(numbers.size())), line.c_str());
    for (size_t i = 0; i < numbers.size(); ++i) {
        FUZZ_CHECK(*numbers[i] == n[i], line.c_str());
    }
}

void CheckNamedLines(const std::string& line) {
    CPUInfo cpu;
    DiskIOInfo disk;
    char name[MONITOR_NAME_LENGTH] = {};
    sscanf(line.c_str(), "%127s", name);
    // A word that is cut continues as the next field.
    const std::string rest = line.substr(std::min(line.find(name) + strlen(name), line.size()));
    CheckNumbers(
        rest, "%lu %lu %lu %lu %lu %lu %lu",
        {&cpu.user, &cpu.nice, &cpu.system, &cpu.idle, &cpu.iowait, &cpu.irq, &cpu.softirq},
        [&](const char*) { return ParseCPULine(line.c_str(), cpu); });
    FUZZ_CHECK(strcmp(cpu.cpu_core_name, name) == 0, line.c_str());
    CheckNumbers(rest, "%lu %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu",
                 {&disk.reads_completed, &disk.reads_merged, &disk.sectors_read,
                  &disk.time_spent_reading, &disk.writes_completed, &disk.writes_merged,
                  &disk.sectors_written, &disk.time_spent_writing, &disk.ios_currently_in_progress,
                  &disk.time_spent_doing_ios, &disk.weighted_time_spent_doing_ios},
                 [&](const char*) { return ParseDiskLine(line.c_str(), disk); });
    FUZZ_CHECK(strcmp(disk.device_name, name) == 0, line.c_str());
    CheckNumbers(rest, "%lu %lu %lu %lu", {&cpu.user, &cpu.nice, &cpu.system, &cpu.idle},
                 [&](const char*) { return ParseCoreLine(line.c_str(), cpu); });
}

/// The finders of the strict reading find what they say.
void CheckWords(const std::string& line) {
    std::string text = "7 7 x 1\n" + line + "\n7 8 sda 1\n";
    const char* const by_name = FindDeviceLine(text.data(), "sda");
    FUZZ_CHECK(by_name != nullptr && strncmp(by_name, "sda ", 4) == 0, line.c_str());
    FUZZ_CHECK(FindDeviceLine(text.data(), 7, 8) != nullptr, line.c_str());
}

void CheckLine(const std::string& line) {
    CheckNamedLines(line);
    NetworkInfo nic;
    CheckNumbers(line.substr(line.find(':') + 1), "%lu %lu %*u %*u %*u %*u %*u %*u %lu %lu",
                 {&nic.input_bytes, &nic.input_packets, &nic.output_bytes, &nic.output_packets},
                 [&](const char* text) { return ParseNetworkCounters(text, nic); });
    ProcessCPUInfo process;
    CheckNumbers(line, "%*u %*s %*s %*u %*u %*u %*u %*u %*u %*u %*u %*u %*u %lu %lu %lu %lu",
                 {&process.user, &process.system, &process.user_wait, &process.system_wait},
                 [&](const char* text) { return ParseProcessTimes(text, process); });
    ThreadCPUInfo thread;
    CheckNumbers(line, "%*u %*s %*s %*u %*u %*u %*u %*u %*u %*u %*u %*u %*u %lu %lu",
                 {&thread.user, &thread.system},
                 [&](const char* text) { return ParseThreadTimes(text, thread); });
    CheckNumbers(line.substr(line.rfind(')') + 1),
                 "%*s %*u %*u %*u %*u %*u %*u %*u %*u %*u %*u %lu %lu %lu %lu %*u %*u %*u %*u %lu",
                 {&process.user, &process.system, &process.user_wait, &process.system_wait,
                  &process.start_time},
                 [&](const char* text) {
                     return ParseProcessStat((")" + std::string(text)).c_str(), process);
                 });
    FUZZ_CHECK(!ParseThreadStat(line.c_str(), thread) || thread.start_time == process.start_time,
               line.c_str());
    CheckNumbers(line, "%*s %lu", {&process.user},
                 [&](const char* text) { return ParseKeyValue(text, process.user); });
}

void CheckMountLine(const std::string& line) {
    char found[2][MONITOR_NAME_LENGTH] = {};
    const bool complete = ParseMountLine(line.c_str(), found[0], found[1]);
    // sscanf has no way to cut a word and skip its rest, so the words are cut out here.
    std::string words[] = {std::string(line.size() + 1, '\0'), std::string(line.size() + 1, '\0')};
    const int read = sscanf(line.c_str(), "%s %s", words[0].data(), words[1].data());
    FUZZ_CHECK(complete == (read == 2), line.c_str());
    for (const int i : {0, 1}) {
        FUZZ_CHECK(!complete ||
                       words[i].substr(0, MONITOR_NAME_LENGTH - 1).c_str() == std::string(found[i]),
                   line.c_str());
    }
}

}  // namespace

void CheckParsers(std::string_view text) {
    for (int i = 0; i < MAX_LINES && !text.empty(); ++i) {
        const std::string_view whole = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(whole.size() + 1, text.size()));
        const std::string line = std::string(whole).c_str();  // up to a NUL
        CheckLine(line);
        CheckMountLine(line);
        CheckWords(line);
    }
}

}  // namespace corvane_fuzz
