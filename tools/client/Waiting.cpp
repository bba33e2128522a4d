#include "tools/client/Waiting.hpp"

#include <algorithm>
#include <cerrno>

namespace client {

void waitFor(std::span<zmq_pollitem_t> items, std::optional<Clock::time_point> deadline) {
    constexpr long kNoLimit = -1;
    long timeoutMs = kNoLimit;
    if (deadline) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
        timeoutMs = static_cast<long>(std::max(left.count(), std::chrono::milliseconds::rep{0}));
    }
    // A program that is stopped and continued is interrupted here.
    if (zmq_poll(items.data(), static_cast<int>(items.size()), timeoutMs) < 0 &&
        zmq_errno() != EINTR) {
        throw zmq::error_t();
    }
}

void throwIfStopped(StopSignals& stop) {
    if (const int signal = stop.take(); signal != 0) {
        throw Interrupted{signal};
    }
}

} // namespace client
