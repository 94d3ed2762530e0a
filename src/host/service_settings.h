// What a service measures and how often.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "log_category.h"
#include "process_target.h"
#include "report.h"

namespace corvane {

/// The defaults suit a server that watches itself. Intervals are from a second to a day; what is
/// named twice counts once.
struct ServiceSettings {
    std::chrono::seconds report_interval{10};  ///< a report each; the peaks span it
    std::chrono::seconds cycle{1};             ///< between measurements: peaks are over these
    std::chrono::seconds tiny_cycle{1};        ///< between measurements of the CPU's latest figure
    std::vector<ProcessTarget> processes;      ///< empty: the process itself
    std::vector<std::string> directories;      ///< empty: the working directory
    std::vector<std::string> interfaces;       ///< of the network; empty: all but the loopback
    /// The monitor's compatible reading instead of the strict one; docs/guide.md tells them apart.
    /// That reading chooses the interfaces itself: `interfaces` must be empty.
    bool compatible = false;
    bool cores = true;           ///< a figure per core
    LogCategory* log = nullptr;  ///< for the monitor's records; must outlive the service
    /// Gets each report, on the service's thread, which measures on when it returns. What it throws
    /// is logged and ends nothing.
    std::function<void(const std::shared_ptr<const Report>&)> on_report;
};

/// The settings with what was left out filled in and what was named twice dropped.
/// @throws std::invalid_argument what makes no sense, in words
ServiceSettings CompleteSettings(ServiceSettings settings);

}  // namespace corvane
