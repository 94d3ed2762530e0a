#include "web/connections.h"

#include <sys/socket.h>

#include <utility>

namespace corvane::program {

namespace {

using namespace std::chrono_literals;

constexpr auto REQUEST_DEADLINE = 20s;  // from the connection or the request on to the last byte
constexpr auto IDLE_DEADLINE = 120s;    // longer than servers take between two scrapes
constexpr auto GRACE = 2ms;             // for the first bytes to arrive

}  // namespace

Connection* Connections::Add(int socket) {
    Connection& connection = m_all.emplace_back();
    connection.socket = socket;
    connection.since = Clock::now();
    return &connection;
}

void Connections::Remove(const Connection* connection) {
    m_all.remove_if([&](const Connection& other) { return &other == connection; });
}

void Connections::BeginRequest(Connection& connection) {
    if (connection.idle) {
        connection.idle = false;
        connection.since = Clock::now();
    }
}

void Connections::EndRequest(Connection& connection) {
    connection.idle = true;
    connection.since = Clock::now();
    connection.discarded_bytes = 0;
    connection.verdict = PasswordCheck::Verdict::Unknown;
}

/// The library notices that the line is dead, and closes and forgets it.
void Connections::End(Connection& connection) {
    connection.closing = true;
    shutdown(connection.socket, SHUT_RDWR);
}

void Connections::EndOverdue(Clock::time_point now) {
    for (Connection& connection : m_all) {
        const Clock::duration deadline = connection.idle ? IDLE_DEADLINE : REQUEST_DEADLINE;
        if (!connection.closing && now - connection.since > deadline) {
            End(connection);
        }
    }
}

bool Connections::EndOne(Clock::time_point now) {
    const auto how_missed = [](const Connection& connection) {
        return std::pair(!connection.idle, connection.since);
    };
    Connection* victim = nullptr;
    for (Connection& connection : m_all) {
        const bool candidate =
            !connection.closing && (connection.idle || now - connection.since > GRACE);
        if (candidate && (victim == nullptr || how_missed(connection) < how_missed(*victim))) {
            victim = &connection;
        }
    }
    if (victim != nullptr) {
        End(*victim);
    }
    return victim != nullptr;
}

}  // namespace corvane::program
