// Reports as metrics for a Prometheus server. The metrics are documented in docs/outputs.md.
//
// A scrape reads what the last report stored and never touches the monitor: any number of scrapers
// see the same peaks.
#pragma once

#include <prometheus/collectable.h>
#include <prometheus/metric_family.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "report.h"

namespace corvane {

/// The metrics of a report, `now` for its age. Families that were not measured are absent and say
/// so in corvane_collector_success. Without a report only what always holds is there.
std::vector<prometheus::MetricFamily> ToMetrics(const Report* report,
                                                std::chrono::steady_clock::time_point now);

/// The same in the text format 0.0.4.
std::string ToPrometheusText(const Report* report, std::chrono::steady_clock::time_point now);

/// The latest report's metrics, for a registry or an exposer of the server's own. Safe to use from
/// several threads.
class ReportMetrics : public prometheus::Collectable {
public:
    /// Replaces what scrapes see.
    void Store(std::shared_ptr<const Report> report);

    std::vector<prometheus::MetricFamily> Collect() const override;

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const Report> m_report;
};

}  // namespace corvane
