#pragma once

#include "tools/process/StopSignals.hpp"

#include <zmq.hpp>

#include <chrono>
#include <optional>
#include <span>

namespace client {

using Clock = std::chrono::steady_clock;

/// Thrown when a signal ends a wait.
struct Interrupted {
    int signal;
};

/// Waits until one of the items is ready or, if there is one, the deadline has passed. May return
/// earlier.
void waitFor(std::span<zmq_pollitem_t> items, std::optional<Clock::time_point> deadline);

inline zmq_pollitem_t pollItem(const StopSignals& stop) {
    return {nullptr, stop.descriptor(), ZMQ_POLLIN, 0};
}

/// Throws Interrupted when a signal has arrived.
void throwIfStopped(StopSignals& stop);

} // namespace client
