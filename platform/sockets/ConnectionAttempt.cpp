#include "platform/sockets/ConnectionAttempt.hpp"

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

namespace {

constexpr int kSucceeded = ZMQ_EVENT_HANDSHAKE_SUCCEEDED;
// Not ZMQ_EVENT_CONNECT_RETRIED, which follows ZMQ_EVENT_CLOSED: of the two, the later one could
// reach the observer of the next attempt.
constexpr int kRefused = ZMQ_EVENT_CLOSED;
// Whichever of the two sides finds out first ends the connection.
constexpr int kHungUp = ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL |
                        ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL | ZMQ_EVENT_HANDSHAKE_FAILED_AUTH;

/// A name that no address of a consumer can be prepared to clash with.
std::string freshMonitorEndpoint() {
    std::random_device random;
    std::string name = "inproc://connection-attempt";
    for (int part = 0; part < 4; ++part) {
        name += "-" + std::to_string(random());
    }
    return name;
}

} // namespace

ConnectionAttempt::ConnectionAttempt(zmq::context_t& context, zmq::socket_t& monitored)
    : socket(monitored), events(context, zmq::socket_type::pair) {
    const std::string endpoint = freshMonitorEndpoint();
    if (zmq_socket_monitor(socket.handle(), endpoint.c_str(), kSucceeded | kRefused | kHungUp) !=
        0) {
        throw zmq::error_t();
    }
    events.connect(endpoint);
}

ConnectionAttempt::~ConnectionAttempt() {
    zmq_socket_monitor(socket.handle(), nullptr, 0);
}

ConnectionAttempt::Outcome ConnectionAttempt::outcomeWithin(std::chrono::milliseconds limit) {
    zmq_pollitem_t item{events.handle(), -1, ZMQ_POLLIN, 0};
    if (zmq_poll(&item, 1, static_cast<long>(limit.count())) <= 0) {
        return Outcome::open;
    }
    zmq::message_t event;
    zmq::message_t address;
    (void)events.recv(event);
    (void)events.recv(address);
    std::uint16_t kind = 0;
    if (event.size() < sizeof kind) {
        return Outcome::open;
    }
    std::memcpy(&kind, event.data(), sizeof kind);
    if (kind == kSucceeded) {
        return Outcome::connected;
    }
    return (kind & kHungUp) != 0 ? Outcome::hungUp : Outcome::refused;
}
