// The last report as metrics for a Prometheus server. The metrics are documented in
// docs/outputs.md.
//
// A scrape reads what the last report stored and never touches the monitor: any number of scrapers
// see the same peaks. Scrapes come on the exporter's own threads.
#pragma once

#include <prometheus/collectable.h>
#include <prometheus/exposer.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "report.h"
#include "schedule.h"

namespace corvane_host {

/// The metrics of a report, `now` for its age. Families that were not measured are absent and say
/// so in corvane_collector_success. Without a report only what always holds is there.
std::vector<prometheus::MetricFamily> ToMetrics(const Report* report, Clock::time_point now);

class MetricsServer {
public:
    /// Listens at once. Throws std::runtime_error, with the reason, when it cannot.
    explicit MetricsServer(const std::string& address);

    /// Where it listens; for port 0 the port that the system chose.
    const std::string& Address() const { return m_address; }

    /// Replaces what scrapes see.
    void Store(Report report);

private:
    class StoredReport;
    std::shared_ptr<StoredReport> m_stored;
    std::unique_ptr<prometheus::Exposer> m_exposer;
    std::string m_address;
};

}  // namespace corvane_host
