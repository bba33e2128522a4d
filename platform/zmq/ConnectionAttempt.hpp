#pragma once

#include <zmq.hpp>

#include <chrono>

/// Tells how an attempt to connect ended: it watches the attempts of one socket for as long as it
/// lives. Not to be kept for longer, because events that nobody reads pile up in it.
class ConnectionAttempt {
public:
    /// Watches `monitored`, which must outlive this object, from now on. Takes two sockets of the
    /// context; throws zmq::error_t when it has none left.
    ConnectionAttempt(zmq::context_t& context, zmq::socket_t& monitored);
    ~ConnectionAttempt();
    ConnectionAttempt(const ConnectionAttempt&) = delete;
    ConnectionAttempt& operator=(const ConnectionAttempt&) = delete;
    ConnectionAttempt(ConnectionAttempt&&) = delete;
    ConnectionAttempt& operator=(ConnectionAttempt&&) = delete;

    /// True when a connection stands, false when it was refused or `limit` has passed. On loopback
    /// either takes well under a millisecond.
    bool succeedsWithin(std::chrono::milliseconds limit);

private:
    zmq::socket_t& socket;
    zmq::socket_t events;
};
