#pragma once

#include "tools/process/StopSignals.hpp"

#include <zmq.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

/// Addresses are ZeroMQ endpoints: "tcp://HOST:PORT" or "ipc:///PATH". The library is generous with
/// them (it connects to port 7000 for 72536, and binds over an ordinary file), so they are checked
/// before they are used.
namespace client {

/// Throws BadEndpoint unless the service can connect to `address` as far as its text tells: a host,
/// a port from 1 to 65535, no wildcard; for "ipc", an absolute path where nothing or a socket is,
/// or an abstract name ("ipc://@NAME").
void checkConnectable(const std::string& address);

/// Throws BadEndpoint unless `endpoint` may be bound: as above, but the wildcards of "tcp" are
/// allowed, and at an "ipc" path nobody may listen.
void checkBindable(const std::string& endpoint);

/// The first of `registered` that leads to the same place as `address`. For "tcp", the case of
/// letters does not count, nor do leading zeros of the port; "localhost" is 127.0.0.1. Asks no name
/// server.
std::optional<std::string> similarAddress(const std::vector<std::string>& registered,
                                          const std::string& address);

/// The address with its host name looked up, as a socket on that host has to bind it. Unchanged
/// when there is no name in it, and when the name is not known.
std::string withNumericHost(const std::string& address);

/// The IPv4 address from which this machine reaches the host of a "tcp://host:port" endpoint:
/// 127.0.0.1 for one on this machine, and when the host cannot be found.
std::string ownAddressTowards(const std::string& endpoint);

/// Whether only its own machine can reach an endpoint: the loopback network, or "ipc".
bool isOnlyLocal(const std::string& endpoint);

/// What the service would meet at a consumer's address.
enum class Reachability {
    /// A consumer: a socket that takes what a PUSH socket sends.
    consumer,
    /// Something that accepts connections but does not understand the service, or is stopped.
    stranger,
    /// Nothing that accepts a connection from this machine.
    nobody,
};

/// Connects to each address from this machine, as the service does, sends nothing and closes the
/// connections. A refusal is known at once; silence takes `limit`. Returns one answer an address,
/// in their order; nobody listens at an address that cannot be connected to. A signal throws
/// Interrupted.
std::vector<Reachability> tryConnecting(zmq::context_t& context,
                                        const std::vector<std::string>& addresses,
                                        std::chrono::milliseconds limit, StopSignals& stop);

} // namespace client
