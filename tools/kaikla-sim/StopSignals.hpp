#pragma once

#include <csignal>

namespace sim {

/// SIGTERM, SIGINT and SIGHUP as a descriptor to poll, for as long as the object lives: none of
/// them interrupts anything, and none is lost. Made before the threads that are to inherit it.
class StopSignals {
public:
    /// Throws std::system_error when the descriptor cannot be made.
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    StopSignals(StopSignals&&) = delete;
    StopSignals& operator=(StopSignals&&) = delete;

    /// Until an object exists, such a signal ends the process at once with status 0: nothing has
    /// been begun that would have to be ended in order. SIGHUP stays ignored where it is (nohup).
    static void endProcessAtOnce();

    /// Becomes readable with the first signal and stays so.
    int descriptor() const { return signalDescriptor; }

private:
    sigset_t caught{};
    int signalDescriptor = -1;
};

} // namespace sim
