// Where the web server listens: one address and one port.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace corvane::program {

struct ListenAddress {
    std::string host = "127.0.0.1";  ///< numeric, IPv4 or IPv6, without brackets
    uint16_t port = 0;               ///< 0: the system chooses

    /// Whether only this machine can reach it.
    bool IsLoopback() const;

    /// ADDRESS:PORT, [IPV6]:PORT.
    std::string Text() const;
};

/// Reads ADDRESS:PORT, [IPV6]:PORT (a link-local address with its %INTERFACE), or :PORT and PORT
/// for the loopback. Empty for anything else: names are not looked up, and shortened addresses
/// (127.1) are none.
std::optional<ListenAddress> ParseListenAddress(const std::string& text);

}  // namespace corvane::program
