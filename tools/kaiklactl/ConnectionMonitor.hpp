#pragma once

#include <zmq.hpp>

namespace kaiklactl {

/// Tells when a socket's connections come and go. Must be destroyed before the socket.
class ConnectionMonitor {
public:
    enum class Event {
        none,
        /// An attempt to connect has failed; the library makes another one.
        refused,
        /// The TCP connection stands; the other side has yet to show that it speaks ZMTP.
        accepted,
        /// A connection stands and both sides understand each other.
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

    /// The next event that has happened, none when there is no further one.
    Event take();

private:
    zmq::socket_t& socket;
    zmq::socket_t events;
};

} // namespace kaiklactl
