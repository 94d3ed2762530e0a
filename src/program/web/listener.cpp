#include "web/listener.h"

#include <netdb.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace corvane::program {

namespace {

[[noreturn]] void Fail(const ListenAddress& address, const char* reason) {
    throw std::runtime_error("cannot listen on " + address.Text() + ": " + reason);
}

uint16_t PortOf(int socket, const ListenAddress& address) {
    sockaddr_storage bound = {};
    socklen_t length = sizeof(bound);
    std::array<char, NI_MAXSERV> port = {};
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&bound), &length) != 0 ||
        getnameinfo(reinterpret_cast<sockaddr*>(&bound), length, nullptr, 0, port.data(),
                    port.size(), NI_NUMERICSERV) != 0) {
        Fail(address, "the port is not known");
    }
    return static_cast<uint16_t>(std::stoul(port.data()));
}

}  // namespace

Listener Listen(const ListenAddress& address) {
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    addrinfo* found = nullptr;
    const int status =
        getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &hints, &found);
    if (status != 0) {
        Fail(address, gai_strerror(status));
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, freeaddrinfo);

    Descriptor made(socket(found->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    const int off = 0;
    if (made.Get() < 0 || setsockopt(made.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        (found->ai_family == AF_INET6 &&
         setsockopt(made.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof(off)) != 0) ||
        bind(made.Get(), found->ai_addr, found->ai_addrlen) != 0 ||
        listen(made.Get(), SOMAXCONN) != 0) {
        Fail(address, std::strerror(errno));
    }
    const uint16_t port = PortOf(made.Get(), address);
    return {std::move(made), {address.host, port}};
}

}  // namespace corvane::program
