// The clients that are connected, and which of them have to go.
//
// A client that takes its time costs a slot, never a thread. When slots run out, the ones that wait
// for nothing go first, then the oldest; without that, each has its deadline.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <list>

#include "schedule.h"
#include "web/password.h"

namespace corvane::program {

struct Connection {
    int socket = -1;          ///< the web server library's
    Clock::time_point since;  ///< connected, or asking since, or idle since
    bool idle = false;        ///< between two requests
    bool closing = false;
    size_t discarded_bytes = 0;  ///< of a request's body, which nobody reads
    std::atomic<PasswordCheck::Verdict> verdict{PasswordCheck::Verdict::Unknown};
};

class Connections {
public:
    size_t Size() const { return m_all.size(); }

    /// Throws std::bad_alloc.
    Connection* Add(int socket);
    void Remove(const Connection* connection);

    static void BeginRequest(Connection& connection);
    static void EndRequest(Connection& connection);

    /// Ends those that are over their deadline.
    void EndOverdue(Clock::time_point now);

    /// Ends the one that is missed least. False when all are too young to judge.
    bool EndOne(Clock::time_point now);

private:
    static void End(Connection& connection);

    std::list<Connection> m_all;
};

}  // namespace corvane::program
