#include "tools/kaikla-sim/BoundSocket.hpp"

#include <stdexcept>
#include <string>

namespace sim {

void bindSocket(zmq::socket_t& socket, const char* endpoint, const char* serviceName) {
    constexpr int kLingerMs = 200;
    socket.set(zmq::sockopt::linger, kLingerMs);
    try {
        socket.bind(endpoint);
    } catch (const zmq::error_t& error) {
        throw std::runtime_error("cannot play the " + std::string(serviceName) + " service on " +
                                 endpoint + ": " + error.what());
    }
}

} // namespace sim
