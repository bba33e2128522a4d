#include "tools/client/ListeningConsumer.hpp"

#include "tools/client/Address.hpp"
#include "tools/client/Failure.hpp"

#include <cstdint>

namespace client {
namespace {

/// Far above any status document. Bounds what one frame of a stranger can take.
constexpr std::int64_t kMaxMessageBytes = std::int64_t{64} * 1024 * 1024;

constexpr const char* kAnyAddress = "tcp://0.0.0.0:";

} // namespace

ListeningConsumer::ListeningConsumer(zmq::context_t& context, const std::string& bindEndpoint,
                                     const std::string& server)
    : socket(context, zmq::socket_type::pull) {
    const std::string endpoint =
        bindEndpoint.empty() ? "tcp://" + ownAddressTowards(server) + ":*" : bindEndpoint;
    socket.set(zmq::sockopt::linger, 0);
    socket.set(zmq::sockopt::maxmsgsize, kMaxMessageBytes);
    monitor.emplace(context, socket);
    try {
        socket.bind(endpoint);
        ownAddress = socket.get(zmq::sockopt::last_endpoint);
    } catch (const zmq::error_t& error) {
        throw BadEndpoint("cannot listen on " + endpoint + ": " + error.what() +
                          "; an endpoint looks like tcp://192.0.2.10:7000.");
    }
    // Nobody can connect to "any address".
    if (const std::string any = kAnyAddress; ownAddress.compare(0, any.size(), any) == 0) {
        ownAddress = "tcp://" + ownAddressTowards(server) + ":" + ownAddress.substr(any.size());
    }
}

std::optional<std::string> ListeningConsumer::receive() {
    zmq::message_t frame;
    if (!socket.recv(frame, zmq::recv_flags::dontwait)) {
        return std::nullopt;
    }
    if (!frame.more()) {
        return frame.to_string();
    }
    while (frame.more()) {
        (void)socket.recv(frame);
    }
    return "";
}

bool ListeningConsumer::lostConnection() {
    bool lost = false;
    for (;;) {
        switch (monitor->take()) {
        case ConnectionMonitor::Event::none:
            return lost;
        case ConnectionMonitor::Event::disconnected:
            lost = true;
            break;
        default:
            break;
        }
    }
}

} // namespace client
