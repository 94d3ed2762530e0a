#include "kernel_names.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "process_stat.h"

namespace corvane {

namespace {

bool IsAllDigits(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(),
                                        [](unsigned char c) { return std::isdigit(c) != 0; });
}

std::string WithoutFinalNewline(std::string text) {
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

}  // namespace

std::string Joined(const std::vector<std::string>& names) {
    std::string joined;
    for (const std::string& name : names) {
        joined += (joined.empty() ? "" : ", ") + name;
    }
    return joined.empty() ? "none" : joined;
}

std::vector<std::string> CoreNames(const std::string& stat_text) {
    std::vector<std::string> names;
    std::istringstream lines(stat_text);
    for (std::string line; std::getline(lines, line);) {
        const std::string name = line.substr(0, line.find(' '));
        if (name.compare(0, 3, "cpu") == 0 && name.size() > 3) {
            names.push_back(name);
        }
    }
    return names;
}

std::vector<std::string> InterfaceNames(const std::string& net_dev_text) {
    std::vector<std::string> names;
    std::istringstream lines(net_dev_text);
    for (std::string line; std::getline(lines, line);) {
        const size_t start = line.find_first_not_of(' ');
        const size_t colon = line.rfind(':');
        if (start != std::string::npos && colon != std::string::npos && start < colon) {
            names.push_back(line.substr(start, colon - start));
        }
    }
    return names;
}

bool IsMeasuredInterface(const std::string& name) {
    return name.find("eth") != std::string::npos || name.find("em") != std::string::npos ||
           name.find("bond") != std::string::npos;
}

std::string MeasuredDiskName(const std::string& diskstats_text, const std::string& disk) {
    for (size_t length = 1; length <= disk.size(); ++length) {
        const size_t found = diskstats_text.find(disk.substr(0, length));
        if (found == std::string::npos) {
            break;
        }
        if (diskstats_text.compare(found + length, 1, " ") != 0) {
            continue;
        }
        const size_t newline = diskstats_text.rfind('\n', found);
        std::istringstream line(
            diskstats_text.substr(newline == std::string::npos ? 0 : newline + 1));
        std::string major;
        std::string minor;
        std::string name;
        line >> major >> minor >> name;
        return name;
    }
    return "";
}

bool IsDiskOrPartition(const std::string& disk, const std::string& whole) {
    if (whole.empty() || disk.compare(0, whole.size(), whole) != 0) {
        return false;
    }
    std::string suffix = disk.substr(whole.size());
    if (suffix.empty()) {
        return true;
    }
    // Behind a digit the kernel puts a p before the partition's number.
    if (std::isdigit(static_cast<unsigned char>(whole.back())) != 0) {
        if (suffix.front() != 'p') {
            return false;
        }
        suffix.erase(0, 1);
    }
    return IsAllDigits(suffix);
}

std::string CommandName(uint32_t pid) {
    return WithoutFinalNewline(ReadWholeFile(ProcessFile(pid, "comm")));
}

std::vector<std::string> ThreadNames(uint32_t pid) {
    std::vector<std::string> names;
    const std::string tasks = ProcessFile(pid, "task");
    for (const std::string& tid : NamesIn(tasks)) {
        std::string path = tasks;
        path.append("/").append(tid).append("/comm");
        names.push_back(WithoutFinalNewline(ReadWholeFile(path)));
    }
    return names;
}

bool HoldsBlank(const std::string& name) {
    return name.find_first_of(" \t\n\v\f\r") != std::string::npos;
}

}  // namespace corvane
