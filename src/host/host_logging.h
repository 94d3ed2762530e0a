// A ready-made logging library for a host that has none: the monitor's records go to standard
// error or a file through spdlog, with time, priority and source location.
//
// Linking corvane_host defines CategoryCanWrite, CategoryLogV and GetDiskSize.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "log_category.h"

namespace spdlog {
class logger;
}
class HostLogRedirection;  // internal

/// The name of a priority, as it stands in the output: "FATAL" ... "TRACE". A priority between two
/// named ones takes the less urgent name.
const char* LogPriorityName(int32_t priority);

/// The priority of a name in any case ("error", "DEBUG"); -1 for "off". False for no name.
bool LogPriorityFromName(const std::string& name, int32_t& priority);

/// A category that writes records up to a priority that may change at any time. The category must
/// outlive the calls that it is passed to. Safe to use from several threads, but for SetPriority.
class HostLogCategory : public LogCategory {
public:
    /// @param least_urgent e.g. LOG_PRIORITY_ERROR: FATAL to ERROR are written; -1: nothing is
    /// @param file that records are appended to; empty: standard error
    /// @throws std::exception, with the reason, when the file cannot be opened
    explicit HostLogCategory(int32_t least_urgent, const std::string& file = "");
    HostLogCategory(const HostLogCategory&) = delete;
    HostLogCategory& operator=(const HostLogCategory&) = delete;
    ~HostLogCategory();

    /// Changes what is written from now on; see the constructor.
    void SetPriority(int32_t least_urgent);

    /// Hands each record from now on to `taker`, as the line that would go to standard error,
    /// without its end; an empty function goes back to standard error. Records that go to a file
    /// stay there. `taker` is called on the thread that logs, one record at a time, and must not
    /// log; it is not called any more when a call that replaced it has returned. Safe to call from
    /// any thread but in `taker`.
    void Redirect(std::function<void(const std::string& line)> taker);

    /// What writes the records.
    spdlog::logger& Logger() const { return *m_logger; }

private:
    std::shared_ptr<HostLogRedirection> m_redirection;  // null: records go to a file
    std::shared_ptr<spdlog::logger> m_logger;
    int32_t m_least_urgent = -1;
    int32_t m_most_urgent = INT32_MAX;
};
