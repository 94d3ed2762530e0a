#include "service_settings.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "process_stat.h"

namespace corvane {

namespace {

constexpr std::chrono::seconds LONGEST{86400};

void CheckInterval(const char* name, std::chrono::seconds interval) {
    if (interval < std::chrono::seconds(1) || interval > LONGEST) {
        throw std::invalid_argument(std::string(name) + " is " + std::to_string(interval.count()) +
                                    " s; it must be from 1 s to a day");
    }
}

void CheckCycle(const char* name, std::chrono::seconds cycle, std::chrono::seconds report) {
    CheckInterval(name, cycle);
    if (cycle > report) {
        throw std::invalid_argument(std::string(name) + ", " + std::to_string(cycle.count()) +
                                    " s, is longer than the report interval, " +
                                    std::to_string(report.count()) + " s");
    }
}

void CheckTarget(const ProcessTarget& target) {
    if (target.text.empty()) {
        throw std::invalid_argument("a process to watch has an empty name");
    }
    if (target.kind == ProcessTarget::Kind::Pid && !PidFromText(target.text)) {
        throw std::invalid_argument("not a process number: " + target.text);
    }
    if (target.kind == ProcessTarget::Kind::Unit && target.text.find('/') != std::string::npos) {
        throw std::invalid_argument("not the name of a unit: " + target.text);
    }
}

void CheckNames(const char* what, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        if (name.empty() || name.find('\0') != std::string::npos) {
            throw std::invalid_argument(std::string(what) + " is empty or holds a NUL");
        }
    }
}

/// Each value once: what is watched twice would be measured against itself.
template <typename Value>
void DropRepeated(std::vector<Value>& values) {
    std::vector<Value> once;
    for (Value& value : values) {
        if (std::find(once.begin(), once.end(), value) == once.end()) {
            once.push_back(std::move(value));
        }
    }
    values.swap(once);
}

std::string WorkingDirectory() {
    std::error_code error;
    const std::string path = std::filesystem::current_path(error);
    return error ? "/" : path;  // it may have been removed
}

}  // namespace

ServiceSettings CompleteSettings(ServiceSettings settings) {
    CheckInterval("the report interval", settings.report_interval);
    CheckCycle("the cycle", settings.cycle, settings.report_interval);
    CheckCycle("the tiny cycle", settings.tiny_cycle, settings.report_interval);
    std::for_each(settings.processes.begin(), settings.processes.end(), CheckTarget);
    CheckNames("a directory", settings.directories);
    CheckNames("an interface", settings.interfaces);
    if (settings.compatible && !settings.interfaces.empty()) {
        throw std::invalid_argument("the compatible reading chooses its interfaces itself");
    }
    if (settings.processes.empty()) {
        settings.processes.push_back({ProcessTarget::Kind::Pid, std::to_string(getpid())});
    }
    if (settings.directories.empty()) {
        settings.directories.push_back(WorkingDirectory());
    }
    DropRepeated(settings.processes);
    DropRepeated(settings.directories);
    DropRepeated(settings.interfaces);
    return settings;
}

}  // namespace corvane
