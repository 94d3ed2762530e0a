// The program's web server: the latest report as metrics.
#pragma once

#include <prometheus/exposer.h>

#include <memory>
#include <string>

#include "report_metrics.h"

namespace corvane::program {

class WebServer {
public:
    /// Listens at once. Throws std::runtime_error, with the reason, when it cannot.
    explicit WebServer(const std::string& address);

    /// Where it listens; for port 0 the port that the system chose.
    const std::string& Address() const { return m_address; }

    /// Replaces what clients see.
    void Store(std::shared_ptr<const Report> report) { m_metrics->Store(std::move(report)); }

private:
    std::shared_ptr<ReportMetrics> m_metrics;
    std::unique_ptr<prometheus::Exposer> m_exposer;
    std::string m_address;
};

}  // namespace corvane::program
