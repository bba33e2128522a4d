#include "tools/client/ConnectionMonitor.hpp"

#include <cstdint>
#include <cstring>
#include <string>

namespace client {
namespace {

std::string freshEndpoint() {
    static unsigned number = 0;
    return "inproc://connection-monitor-" + std::to_string(number++);
}

} // namespace

ConnectionMonitor::ConnectionMonitor(zmq::context_t& context, zmq::socket_t& monitored)
    : socket(monitored), events(context, zmq::socket_type::pair) {
    const std::string endpoint = freshEndpoint();
    if (zmq_socket_monitor(socket.handle(), endpoint.c_str(),
                           ZMQ_EVENT_CONNECT_RETRIED | ZMQ_EVENT_CONNECTED |
                               ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_DISCONNECTED) != 0) {
        throw zmq::error_t();
    }
    events.connect(endpoint);
}

ConnectionMonitor::~ConnectionMonitor() {
    zmq_socket_monitor(socket.handle(), nullptr, 0);
}

ConnectionMonitor::Event ConnectionMonitor::take() {
    zmq::message_t event;
    if (!events.recv(event, zmq::recv_flags::dontwait)) {
        return Event::none;
    }
    zmq::message_t address;
    (void)events.recv(address);
    std::uint16_t kind = 0;
    if (event.size() >= sizeof kind) {
        std::memcpy(&kind, event.data(), sizeof kind);
    }
    switch (kind) {
    case ZMQ_EVENT_CONNECT_RETRIED:
        return Event::refused;
    case ZMQ_EVENT_CONNECTED:
        return Event::accepted;
    case ZMQ_EVENT_HANDSHAKE_SUCCEEDED:
        return Event::connected;
    default:
        return Event::disconnected;
    }
}

} // namespace client
