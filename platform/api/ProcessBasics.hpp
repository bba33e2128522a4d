#pragma once

#include "platform/api/PollFds.hpp"

#include <csignal>

/// Signal catching, and the process's limits. SIGTERM, SIGINT and, unless it is ignored, SIGHUP ask
/// the process to stop: they set the stop flag, make a descriptor in the poll set readable (so that
/// one which arrives between a look at the flag and the wait is not lost) and interrupt the call in
/// progress. They also start the StopDeadline, so that a blocked call cannot hold up the stop. At
/// most one object at a time.
class ProcessBasics {
public:
    /// Begins to catch signals, adds the descriptor to `pollFds` and allows the process as many
    /// open files as its hard limit. Throws std::system_error when the system refuses the
    /// descriptor.
    explicit ProcessBasics(PollFds& pollFds);
    /// Restores signal handling if tearDownCatchSignals was not called.
    ~ProcessBasics();
    ProcessBasics(const ProcessBasics&) = delete;
    ProcessBasics& operator=(const ProcessBasics&) = delete;

    /// A termination signal has been caught.
    static bool stopRequested();

    /// True when `item` is the signal descriptor; what made it ready is then consumed.
    bool processSignalHandlerFd(const zmq_pollitem_t& item);

    /// Restores signal handling and removes the descriptor from `pollFds`. Once a stop is under way
    /// further termination signals are held back: they must not change how the process ends.
    /// Returns 0.
    int tearDownCatchSignals(PollFds& pollFds);

private:
    void restore();

    int descriptor = -1;
};
