#include "platform/zmq/ConnectionAttempt.hpp"

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

namespace {

constexpr int kSucceeded = ZMQ_EVENT_HANDSHAKE_SUCCEEDED;
// Not ZMQ_EVENT_CONNECT_RETRIED, which follows ZMQ_EVENT_CLOSED: of the two, the later one could
// reach the observer of the next attempt.
constexpr int kFailed = ZMQ_EVENT_CLOSED | ZMQ_EVENT_DISCONNECTED |
                        ZMQ_EVENT_HANDSHAKE_FAILED_NO_DETAIL | ZMQ_EVENT_HANDSHAKE_FAILED_PROTOCOL |
                        ZMQ_EVENT_HANDSHAKE_FAILED_AUTH;

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
    if (zmq_socket_monitor(socket.handle(), endpoint.c_str(), kSucceeded | kFailed) != 0) {
        throw zmq::error_t();
    }
    events.connect(endpoint);
}

ConnectionAttempt::~ConnectionAttempt() {
    zmq_socket_monitor(socket.handle(), nullptr, 0);
}

bool ConnectionAttempt::succeedsWithin(std::chrono::milliseconds limit) {
    zmq_pollitem_t item{events.handle(), -1, ZMQ_POLLIN, 0};
    if (zmq_poll(&item, 1, static_cast<long>(limit.count())) <= 0) {
        return false;
    }
    zmq::message_t event;
    zmq::message_t address;
    (void)events.recv(event);
    (void)events.recv(address);
    std::uint16_t kind = 0;
    if (event.size() < sizeof kind) {
        return false;
    }
    std::memcpy(&kind, event.data(), sizeof kind);
    return kind == kSucceeded;
}
