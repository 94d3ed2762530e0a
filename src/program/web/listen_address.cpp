#include "web/listen_address.h"

#include <arpa/inet.h>
#include <netdb.h>

namespace corvane::program {

namespace {

constexpr unsigned MAX_PORT = 65535;
constexpr size_t MAX_PORT_DIGITS = 5;

std::optional<uint16_t> ParsePort(const std::string& text) {
    if (text.empty() || text.size() > MAX_PORT_DIGITS ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    const unsigned long port = std::stoul(text);
    return port <= MAX_PORT ? std::optional<uint16_t>(static_cast<uint16_t>(port)) : std::nullopt;
}

bool IsIpv4(const std::string& host) {
    in_addr address = {};
    return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

/// With or without %INTERFACE, which inet_pton does not know.
bool IsIpv6(const std::string& host) {
    addrinfo hints = {};
    hints.ai_family = AF_INET6;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) {
        return false;
    }
    freeaddrinfo(found);
    return true;
}

}  // namespace

bool ListenAddress::IsLoopback() const {
    return host.compare(0, 4, "127.") == 0 || host == "::1";
}

std::string ListenAddress::Text() const {
    const bool ipv6 = host.find(':') != std::string::npos;
    return (ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::optional<ListenAddress> ParseListenAddress(const std::string& text) {
    const size_t colon = text.rfind(':');
    const auto port = ParsePort(colon == std::string::npos ? text : text.substr(colon + 1));
    if (!port || text.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    const std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
    if (host.empty()) {
        return ListenAddress{"127.0.0.1", *port};
    }
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        const std::string inner = host.substr(1, host.size() - 2);
        return IsIpv6(inner) ? std::optional<ListenAddress>({inner, *port}) : std::nullopt;
    }
    return IsIpv4(host) ? std::optional<ListenAddress>({host, *port}) : std::nullopt;
}

}  // namespace corvane::program
