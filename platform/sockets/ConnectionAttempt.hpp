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

    enum class Outcome {
        /// A connection stands.
        connected,
        /// Nobody listens.
        refused,
        /// Something answered, and the two did not get on: it is a socket of a type that does not
        /// go
        /// together with this one, or no ZeroMQ at all, or it was about to end.
        hungUp,
        /// `limit` has passed.
        open,
    };
    /// Waits for the next outcome. On loopback that takes well under a millisecond.
    Outcome outcomeWithin(std::chrono::milliseconds limit);

private:
    zmq::socket_t& socket;
    zmq::socket_t events;
};
