#pragma once

/// SIGINT, SIGTERM and SIGHUP as something to poll for, so that none interrupts anything and none
/// is lost between a look and a wait. SIGHUP stays ignored where it is (nohup).
///
/// Made before the threads that are to inherit it. The signals stay held back when the object is
/// gone: whoever had one is about to end, and a second one must not change with which status.
class StopSignals {
public:
    /// Throws std::system_error when there is no descriptor left.
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;
    StopSignals(StopSignals&&) = delete;
    StopSignals& operator=(StopSignals&&) = delete;

    /// Until an object exists, such a signal ends the process at once with status 0: for programs
    /// that have begun nothing by then that would have to be ended in order.
    static void endProcessAtOnce();

    /// Readable while a signal waits to be taken.
    int descriptor() const { return signalDescriptor; }

    /// The number of a signal that has arrived, 0 when there is none. Takes it.
    int take();

private:
    int signalDescriptor;
};
