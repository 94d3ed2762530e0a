// Reports as metrics for a Prometheus server. The metrics are documented in docs/outputs.md.
//
// A scrape reads what the last report stored and never touches the monitor: any number of scrapers
// see the same peaks.
#pragma once

#include <prometheus/collectable.h>
#include <prometheus/metric_family.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "monitor_service.h"
#include "report.h"

namespace corvane {

/// The metrics of a report, `now` for its age. Families that were not measured are absent and say
/// so in corvane_collector_success. Without a report (null) only what always holds is there.
std::vector<prometheus::MetricFamily> ToMetrics(const Report* report,
                                                std::chrono::steady_clock::time_point now);

/// The same in the text format 0.0.4.
std::string ToPrometheusText(const Report* report, std::chrono::steady_clock::time_point now);

/// The latest report's metrics, for a registry or an exposer of the server's own:
///
///     auto metrics = std::make_shared<corvane::ReportMetrics>(service);
///     exposer.RegisterCollectable(metrics);  // which keeps a weak pointer: keep `metrics`
///
/// Collecting waits for no measurement; one that runs out of memory gives nothing. Safe to use from
/// several threads.
class ReportMetrics : public prometheus::Collectable {
public:
    using Latest = std::function<std::shared_ptr<const Report>()>;

    /// Shows what Store() was given last.
    ReportMetrics() = default;
    /// Shows what `latest`, which any thread may call, gives.
    explicit ReportMetrics(Latest latest) : m_latest(std::move(latest)) {}
    /// Shows the service's newest report. The service must outlive the metrics.
    explicit ReportMetrics(const MonitorService& service)
        : ReportMetrics([&service] { return service.Latest(); }) {}

    /// Replaces what scrapes see, where the constructor named no source.
    void Store(std::shared_ptr<const Report> report);

    std::vector<prometheus::MetricFamily> Collect() const override;

private:
    std::shared_ptr<const Report> Newest() const;

    Latest m_latest;
    mutable std::mutex m_mutex;
    std::shared_ptr<const Report> m_report;
};

}  // namespace corvane
