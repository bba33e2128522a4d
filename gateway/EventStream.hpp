#pragma once

#include "gateway/EventRing.hpp"
#include "gateway/Incidents.hpp"

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace gateway {

class Clients;
class Transport;

/// One client of the server-sent events: a position in the ring and one write in progress.
///
/// A client that falls too far behind is told so and gets the whole state; one that does not read
/// at all, or falls behind again and again, is closed.
class EventStream {
public:
    static constexpr std::chrono::seconds kStallLimit{10};
    static constexpr std::size_t kResyncsInMinute = 3;
    /// Events in one write: as many buffers as the library hands to the kernel at once.
    static constexpr std::size_t kMaxWritten = 64;

    /// What every stream of the gateway uses.
    struct Shared {
        EventRing& ring;
        Clients& clients;
        Incidents& incidents;
        /// One that is at least as new as the event of this number.
        std::function<Snapshot(std::uint64_t least)> snapshot;
    };

    /// Sends `head`, then the events behind `since` if the ring still has them, otherwise a
    /// snapshot, then what comes, until the client goes. `address` is the client's.
    static void serve(Transport transport, Shared& shared, const std::string& address,
                      SharedText head, std::optional<std::uint64_t> since);

    /// Events have come.
    virtual void pump() = 0;

    /// Sends what is no event, unless something is on its way anyway.
    virtual void sendHeartbeat(const SharedText& text) = 0;

    /// Closes a stream whose write has made no progress for too long.
    virtual void checkProgress(Clock::time_point now) = 0;

    virtual const std::string& address() const = 0;
    virtual Json::Value toJson() const = 0;

    EventStream(const EventStream&) = delete;
    EventStream& operator=(const EventStream&) = delete;
    EventStream(EventStream&&) = delete;
    EventStream& operator=(EventStream&&) = delete;

protected:
    EventStream() = default;
    ~EventStream() = default;
};

} // namespace gateway
