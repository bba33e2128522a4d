#pragma once

#include "tools/signals/StopSignals.hpp"

#include <zmq.hpp>

#include <chrono>
#include <string>

namespace kaiklactl {

/// What the service would meet at a consumer's address.
enum class Reachability {
    /// A consumer: a socket that takes what a PUSH socket sends.
    consumer,
    /// Something that accepts connections but does not understand the service.
    stranger,
    /// Nothing that accepts a connection from this machine.
    nobody,
    /// The address is none.
    invalid,
};

/// Connects to `address` from this machine, as the service does, sends nothing and closes the
/// connection. A refusal is known at once; silence takes `limit`. A signal ends it: Interrupted.
Reachability tryConnecting(zmq::context_t& context, const std::string& address,
                           std::chrono::milliseconds limit, StopSignals& stop);

} // namespace kaiklactl
