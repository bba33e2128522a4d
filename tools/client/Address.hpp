#pragma once

#include "tools/signals/StopSignals.hpp"

#include <zmq.hpp>

#include <chrono>
#include <string>

namespace client {

/// The IPv4 address from which this machine reaches the host of a "tcp://host:port" endpoint:
/// 127.0.0.1 for one on this machine, and when the host cannot be found.
std::string ownAddressTowards(const std::string& endpoint);

/// Whether a "tcp://host:port" endpoint names the loopback network, which only its own machine
/// can reach.
bool isLoopback(const std::string& endpoint);

/// What the service would meet at a consumer's address.
enum class Reachability {
    /// A consumer: a socket that takes what a PUSH socket sends.
    consumer,
    /// Something that accepts connections but does not understand the service.
    stranger,
    /// Nothing that accepts a connection from this machine.
    nobody,
    /// Not an address that can be connected to.
    invalid,
};

/// Connects to `address` from this machine, as the service does, sends nothing and closes the
/// connection. A refusal is known at once; silence takes `limit`. A signal throws Interrupted.
Reachability tryConnecting(zmq::context_t& context, const std::string& address,
                           std::chrono::milliseconds limit, StopSignals& stop);

} // namespace client
