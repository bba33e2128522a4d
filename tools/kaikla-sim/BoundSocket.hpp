#pragma once

#include <zmq.hpp>

namespace sim {

/// Binds `socket` to `endpoint` on behalf of the service that people call `serviceName`, and gives
/// what is queued a moment to leave when the socket is closed. Other options must be set before.
/// Throws std::runtime_error with a sentence for the user when the endpoint cannot be bound.
void bindSocket(zmq::socket_t& socket, const char* endpoint, const char* serviceName);

} // namespace sim
