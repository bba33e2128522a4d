#pragma once

#include "bench/Peers.hpp"
#include "bench/Workload.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Sends events and receives them at every consumer, in one thread. Every byte that a consumer
/// receives is compared: a message that is lost, repeated, altered or out of order ends the run
/// with a std::runtime_error that says so.
class Exchange {
public:
    using Clock = std::chrono::steady_clock;

    struct Outcome {
        /// Messages received, over all consumers.
        std::uint64_t deliveries = 0;
        std::chrono::nanoseconds elapsed{0};
        /// From sending an event to its arrival at the last consumer. Meaningful at a window of 1.
        std::vector<std::chrono::nanoseconds> latencies;
    };

    /// Sends event 0 of `first` and skips what consumers receive before it, such as the document
    /// that answers a registration. `maxWindow` is the largest window that is going to be used.
    Exchange(const Peers& peers, std::size_t maxWindow, Workload& first);
    ~Exchange();
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    /// Keeps `window` events on their way for `duration`. They still are at the end, so that a
    /// next call goes on at full speed.
    Outcome runFor(std::chrono::nanoseconds duration, std::size_t window, Workload& workload);

    /// Sends that many events and receives everything.
    void runThrough(std::uint64_t count, std::size_t window, Workload& workload);

    /// Receives everything that is on its way, and makes sure that nothing follows it.
    void drain();

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
    void send(int source);
    void receiveAll();
    void receive(Consumer& consumer);
    void skipThrough(Consumer& consumer, const std::string& delivery);
    void compare(Consumer& consumer, const char* bytes, std::size_t size);

    int poll;
    std::vector<Consumer> consumers;
    std::vector<Event> events;
    std::uint64_t sent = 1;
    std::uint64_t completed = 1;
    std::uint64_t deliveries = 0;
    std::vector<std::chrono::nanoseconds> latencies;
    std::string outgoing;
    std::vector<char> incoming;
};
