// The socket that clients connect to.
#pragma once

#include "web/descriptor.h"
#include "web/listen_address.h"

namespace corvane::program {

struct Listener {
    Descriptor socket;      ///< does not block
    ListenAddress address;  ///< with the port that the system chose
};

/// Listens. [::] takes IPv4 as well. Throws std::runtime_error with the system's reason.
Listener Listen(const ListenAddress& address);

}  // namespace corvane::program
