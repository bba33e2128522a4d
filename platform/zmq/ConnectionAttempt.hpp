#pragma once

#include <zmq.hpp>

#include <chrono>

/// Connects `socket`, which must be new, to `endpoint` and waits until the attempt is decided:
/// true when the connection stands, false when it was refused or `limit` has passed. On loopback
/// either takes well under a millisecond. Throws zmq::error_t when the attempt cannot be made.
bool connectAndWait(zmq::context_t& context, zmq::socket_t& socket, const char* endpoint,
                    std::chrono::milliseconds limit);
