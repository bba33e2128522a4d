#pragma once

#include "tools/client/ConnectionMonitor.hpp"

#include <zmq.hpp>

#include <optional>
#include <string>

namespace client {

/// A consumer of this program's own: a PULL socket that the service connects to.
class ListeningConsumer {
public:
    /// Binds to `bindEndpoint`. An empty one means a free port of the address that this machine has
    /// towards `server`: the loopback address for a service on this machine. Throws BadEndpoint
    /// when that cannot be done.
    ListeningConsumer(zmq::context_t& context, const std::string& bindEndpoint,
                      const std::string& server);

    /// The address to register: the service at `server` can connect to it.
    const std::string& address() const { return ownAddress; }

    zmq_pollitem_t messageItem() { return {socket.handle(), -1, ZMQ_POLLIN, 0}; }
    zmq_pollitem_t stateItem() { return monitor->pollItem(); }

    /// The next message, nothing when none has come. A message of several frames, which the service
    /// never sends, comes as an empty text.
    std::optional<std::string> receive();

    /// Whether a connection has been closed since the last call.
    bool lostConnection();

private:
    zmq::socket_t socket;
    std::optional<ConnectionMonitor> monitor;
    std::string ownAddress;
};

} // namespace client
