#pragma once

#include <zmq.hpp>

#include <chrono>
#include <optional>
#include <span>

namespace kaiklactl {

using Clock = std::chrono::steady_clock;

/// Waits until one of the items is ready or, if there is one, the deadline has passed. May return
/// without either.
void waitFor(std::span<zmq_pollitem_t> items, std::optional<Clock::time_point> deadline);

} // namespace kaiklactl
