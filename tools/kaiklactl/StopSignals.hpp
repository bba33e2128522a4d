#pragma once

#include <zmq.hpp>

namespace kaiklactl {

/// SIGINT, SIGTERM and SIGHUP as something to poll for, from construction to destruction, so that
/// none is lost between a look and a wait. SIGPIPE is ignored: closed output is noticed where it is
/// written. A program under nohup stays deaf to SIGHUP.
class StopSignals {
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    StopSignals(StopSignals&&) = delete;
    StopSignals& operator=(StopSignals&&) = delete;

    zmq_pollitem_t pollItem() const { return {nullptr, descriptor, ZMQ_POLLIN, 0}; }

    /// The number of a signal that has arrived, 0 when there is none. Takes it.
    int take();

private:
    int descriptor = -1;
};

/// Thrown when a signal ends a wait.
struct Interrupted {
    int signal;
};

} // namespace kaiklactl
