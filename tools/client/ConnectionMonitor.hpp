#pragma once

#include <zmq.hpp>

namespace client {

/// Tells when a socket's connections come and go. Must be destroyed before the socket.
class ConnectionMonitor {
public:
    enum class Event {
        none,
        /// An attempt to connect has failed; the library makes another one.
        refused,
        /// The peer has accepted the connection; the ZMTP handshake is still to come.
        accepted,
        /// The handshake has succeeded.
        connected,
        disconnected,
    };

    ConnectionMonitor(zmq::context_t& context, zmq::socket_t& monitored);
    ~ConnectionMonitor();
    ConnectionMonitor(const ConnectionMonitor&) = delete;
    ConnectionMonitor& operator=(const ConnectionMonitor&) = delete;
    ConnectionMonitor(ConnectionMonitor&&) = delete;
    ConnectionMonitor& operator=(ConnectionMonitor&&) = delete;

    zmq_pollitem_t pollItem() { return {events.handle(), -1, ZMQ_POLLIN, 0}; }

    /// The next event, none when there is no further one.
    Event take();

private:
    zmq::socket_t& socket;
    zmq::socket_t events;
};

} // namespace client
