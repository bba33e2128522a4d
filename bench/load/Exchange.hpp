#pragma once

#include "bench/load/Peers.hpp"
#include "bench/load/Workload.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Sends events and receives what every consumer gets of them, in one thread and without the
/// library, so that the load costs as little as it can of the machine that it shares with the
/// subject. Every byte that a consumer receives is compared: a message that is lost, repeated,
/// altered or out of order ends the run with a std::runtime_error that says so.
class Exchange {
public:
    using Clock = std::chrono::steady_clock;

    struct Outcome {
        /// Messages that consumers have received, all of them together.
        std::uint64_t deliveries = 0;
        std::chrono::nanoseconds elapsed{0};
        /// From sending an event to its arrival at the last consumer, for each event that arrived.
        /// Meaningful at a window of 1.
        std::vector<std::chrono::nanoseconds> latencies;
    };

    /// Takes over after event 0. `maxWindow` is the largest window that is going to be used.
    Exchange(const Peers& peersToUse, std::size_t maxWindow);
    ~Exchange();
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    Exchange(Exchange&&) = delete;
    Exchange& operator=(Exchange&&) = delete;

    /// Keeps `window` events on their way to the consumers for the duration; they still are at the
    /// end, so that a next call goes on at full speed.
    Outcome runFor(std::chrono::nanoseconds duration, std::size_t window, Workload& workload,
                   const TcpSocket& source);

    /// Sends that many events and receives everything.
    void runThrough(std::uint64_t count, std::size_t window, Workload& workload,
                    const TcpSocket& source);

    /// Receives everything that is under way.
    void drain(const TcpSocket& source);

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
    void produce(std::uint64_t end, std::size_t window, Workload& workload);
    void exchange(const TcpSocket& source);
    void flush(const TcpSocket& source);
    void waitAndReceive();
    void receive(Consumer& consumer);
    void compare(Consumer& consumer, const char* bytes, std::size_t size);

    int poll;
    std::vector<Consumer> consumers;
    std::vector<Event> events;
    std::uint64_t sent = 1;
    std::uint64_t completed = 1;
    std::uint64_t deliveries = 0;
    std::vector<std::chrono::nanoseconds> latencies;
    std::string outgoing;
    std::size_t written = 0;
    std::vector<char> incoming;
};
