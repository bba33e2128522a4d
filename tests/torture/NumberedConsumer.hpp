#pragma once

#include <zmq.hpp>

#include <cstdint>
#include <optional>
#include <string>

/// Binds a port that the socket that went away may still hold for a moment.
void bindPatiently(zmq::socket_t& socket, const std::string& endpoint);

/// A consumer of numbered session messages (the number stands in the NMOS id, before anything else)
/// that can stop reading, go away and come back under the same address.
class NumberedConsumer {
public:
    explicit NumberedConsumer(zmq::context_t& context);

    const std::string& address() const { return endpoint; }

    /// Has as little room for unread messages as the system allows, from the next comeBack() on.
    void takeLittle() { little = true; }
    void goAway() { socket.reset(); }
    void comeBack();

    /// Reads what has come. Throws BrokenPromise when a number does not follow the one before; the
    /// first after a comeBack() may leave some out, which went with the connection.
    void readAll();
    /// Reads until `number` has come; false when it has not within `limitMs`.
    bool readUpTo(std::int64_t number, int limitMs);

    std::int64_t last() const { return lastNumber; }
    std::int64_t received() const { return count; }
    std::int64_t lostWithConnection() const { return lost; }

private:
    bool readOne(zmq::recv_flags flags);

    zmq::context_t* zmqContext;
    std::optional<zmq::socket_t> socket;
    std::string endpoint = "tcp://127.0.0.1:*";
    bool little = false;
    bool gapAllowed = false;
    std::int64_t lastNumber = -1;
    std::int64_t count = 0;
    std::int64_t lost = 0;
};
