#include "web_server.h"

#include <stdexcept>
#include <vector>

namespace corvane::program {

WebServer::WebServer(const std::string& address) : m_metrics(std::make_shared<ReportMetrics>()) {
    try {
        // A client that sends nothing holds a thread until the time is out.
        m_exposer = std::make_unique<prometheus::Exposer>(std::vector<std::string>{
            "listening_ports", address, "num_threads", "8", "request_timeout_ms", "1000"});
    } catch (const std::exception&) {
        throw std::runtime_error("cannot listen on " + address +
                                 ": the port is in use or not allowed, or the address is not one "
                                 "of this machine");
    }
    m_address = address.substr(0, address.rfind(':') + 1) +
                std::to_string(m_exposer->GetListeningPorts().front());
    m_exposer->RegisterCollectable(m_metrics);
}

}  // namespace corvane::program
