// The program's web server: a page, the latest report as metrics and JSON, and the past hour.
//
// One thread of its own serves all clients and waits for none of them. How many there may be leaves
// descriptors for what measures.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "report.h"
#include "web/listen_address.h"

namespace corvane::program {

struct WebSettings {
    ListenAddress address;
    std::string tls_certificate;  ///< file; empty: no TLS
    std::string tls_key;          ///< file; given when the certificate is
    std::string password_file;    ///< empty: everybody may read
};

class WebServer {
public:
    /// Listens at once. Raises the process's limit of descriptors to what it may have.
    /// Throws std::runtime_error with the reason when it cannot serve as asked.
    explicit WebServer(const WebSettings& settings);
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;
    ~WebServer();

    /// Where it listens, as ADDRESS:PORT; for port 0 the port that the system chose.
    std::string Address() const;

    /// The same as a URL: http://ADDRESS:PORT or https://ADDRESS:PORT.
    std::string Url() const;

    /// What the user should know about the settings, in words.
    std::vector<std::string> Notes() const;

    /// Replaces what clients see and adds to the history. From any thread; waits for no client.
    void Store(std::shared_ptr<const Report> report);

private:
    class Service;
    std::unique_ptr<Service> m_service;
};

}  // namespace corvane::program
