#pragma once

#include "tools/client/ConnectionMonitor.hpp"

#include <zmq.hpp>

#include <optional>
#include <string>
#include <vector>

namespace client {

/// A consumer of this program's own: a PULL socket that the service connects to.
class ListeningConsumer {
public:
    /// Binds to the first of `endpoints` where nobody listens. Throws BadEndpoint when none can be
    /// bound. `server` is the service's own endpoint: it tells which address of this machine the
    /// service can connect to.
    ListeningConsumer(zmq::context_t& context, const std::vector<std::string>& endpoints,
                      const std::string& server);
    ListeningConsumer(zmq::context_t& context, const std::string& endpoint,
                      const std::string& server)
        : ListeningConsumer(context, std::vector{endpoint}, server) {}
    /// Removes the file of an "ipc" endpoint.
    ~ListeningConsumer();
    ListeningConsumer(const ListeningConsumer&) = delete;
    ListeningConsumer& operator=(const ListeningConsumer&) = delete;
    ListeningConsumer(ListeningConsumer&&) = delete;
    ListeningConsumer& operator=(ListeningConsumer&&) = delete;

    /// A fixed range of ports. A consumer that was killed blocks the service once its queue is
    /// full; the next consumer takes the same port and so stands in for it.
    static std::vector<std::string> usualEndpoints(const std::string& server);

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
