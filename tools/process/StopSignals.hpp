#pragma once

/// SIGINT, SIGTERM and SIGHUP as a descriptor to poll. They interrupt nothing, and none is lost
/// between a check and a wait. SIGHUP stays ignored where it is ignored already (nohup).
///
/// Create it before any thread, which inherits the blocked signals. They stay blocked when the
/// object is gone, because the process is about to end and a second signal must not change its
/// status.
class StopSignals {
public:
    /// Throws std::system_error when there is no descriptor left.
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    StopSignals(StopSignals&&) = delete;
    StopSignals& operator=(StopSignals&&) = delete;

    /// Readable while a signal waits to be taken.
    int descriptor() const { return signalDescriptor; }

    /// Whether a signal waits to be taken.
    bool arrived() const;

    /// The number of a signal that has arrived, 0 when there is none. Takes it.
    int take();

private:
    int signalDescriptor;
};
