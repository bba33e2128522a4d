#pragma once

#include "bench/load/Peers.hpp"
#include "bench/load/Workload.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

/// Sends events and receives what every consumer gets of them, in one thread and without the
/// library, so that the load costs as little as it can of the machine that it shares with the
/// subject. Every byte that a consumer receives is compared: a message that is lost, repeated,
/// altered or out of order ends the run with a std::runtime_error that says so.
class Exchange {
public:
    using Clock = std::chrono::steady_clock;

    struct Limits {
        /// Events that have not reached every consumer yet.
        std::size_t window = 1;
        std::chrono::nanoseconds duration = std::chrono::nanoseconds::max();
        std::uint64_t events = std::numeric_limits<std::uint64_t>::max();
    };

    struct Outcome {
        /// Within the duration; what was then under way has been received too, but not counted.
        std::uint64_t events = 0;
        std::chrono::nanoseconds elapsed{0};
        /// From sending an event to its arrival at the last consumer, one each event. Meaningful at
        /// a window of 1.
        std::vector<std::chrono::nanoseconds> latencies;
    };

    /// Takes over after event 0. No run may use a larger window than `maxWindow`.
    Exchange(const Peers& peersToUse, std::size_t maxWindow);
    ~Exchange();
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    Exchange(Exchange&&) = delete;
    Exchange& operator=(Exchange&&) = delete;

    Outcome run(Workload& workload, const TcpSocket& source, const Limits& limits);

    /// Makes sure that no consumer got more than was sent.
    void expectSilence();

private:
    struct Consumer {
        int descriptor;
        /// The event whose bytes come next, and how many of them have come.
        std::uint64_t event = 1;
        std::size_t offset = 0;
    };
    struct Event {
        std::string delivery;
        std::size_t consumersLeft = 0;
        Clock::time_point sent;
    };

    Event& slot(std::uint64_t event) { return events[event % events.size()]; }
    void flush(const TcpSocket& source);
    void waitAndReceive();
    void receive(Consumer& consumer);
    void compare(Consumer& consumer, const char* bytes, std::size_t size);

    int poll;
    std::vector<Consumer> consumers;
    std::vector<Event> events;
    std::uint64_t sent = 1;
    std::uint64_t completed = 1;
    std::string outgoing;
    std::size_t written = 0;
    std::vector<char> incoming;
};
