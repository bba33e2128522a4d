#pragma once

#include "gateway/ApiText.hpp"

#include <json/value.h>

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace gateway {

class EventStream;

/// Everybody who listens to the events: how many there may be, and what reaches them.
class Clients {
public:
    static constexpr std::size_t kMax = 1000;
    static constexpr std::size_t kMaxFromOneAddress = 64;

    enum class Admission { welcome, full, tooManyFromThere };
    Admission admit(const std::string& address) const;

    /// A stream is in here from its first to its last moment.
    void add(EventStream& stream);
    void remove(EventStream& stream);
    std::size_t size() const { return streams.size(); }

    /// Events have come.
    void pump();
    void sendHeartbeat(const SharedText& text);
    void checkProgress(Clock::time_point now);

    /// A list with each client's address and how far behind it is.
    Json::Value toJson() const;

    void countDropped(std::uint64_t events) { dropped += events; }
    std::uint64_t droppedEvents() const { return dropped; }

    /// From the moment at which a message was taken from the service to the moment at which the
    /// event's last byte was handed to the system.
    struct Deliveries {
        static constexpr std::array<double, 13> kBoundsS = {
            0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10};
        /// Each is of its own; the last one holds what took longer.
        std::array<std::uint64_t, kBoundsS.size() + 1> number{};
        double sumS = 0;
    };
    void countDelivery(Clock::duration took);
    const Deliveries& deliveries() const { return delivered; }

private:
    std::set<EventStream*> streams;
    std::map<std::string, std::size_t> byAddress;
    std::uint64_t dropped = 0;
    Deliveries delivered;
};

} // namespace gateway
