#pragma once

#include <chrono>

/// Bounds the time that a stop may take.
///
/// The command socket stays open to the end, and sockets of consumers that stopped reading keep
/// what is queued for them. The context's termination waits for both, so it never returns by
/// itself. Once armed, the deadline interrupts blocked calls every millisecond and, when it is
/// reached, ends the process with the status that was decided. Messages queued for a consumer that
/// reads have that long to leave. The log writes every line at once meanwhile.
class StopDeadline {
public:
    /// From the termination signal to the end; leaves a margin below one second.
    static constexpr std::chrono::milliseconds kGrace{800};
    /// When there is no consumer to wait for: time for the last reply to leave.
    static constexpr std::chrono::milliseconds kNoConsumers{50};

    StopDeadline() = delete;

    /// Sets up what arm() needs. Throws std::system_error when the system refuses the timer.
    static void prepare();

    /// The process ends with `exitStatus` after `limit` at the latest, earlier if an earlier end
    /// was set before. Does nothing without prepare(). Async-signal-safe.
    static void arm(int exitStatus, std::chrono::milliseconds limit) noexcept;

    /// Whether arm() has been called. Async-signal-safe.
    static bool armed() noexcept;

    /// Of an armed deadline: the process ends after `limit` at the latest, with the same status.
    static void bringForward(std::chrono::milliseconds limit) noexcept;
};
