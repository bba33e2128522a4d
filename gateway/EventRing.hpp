#pragma once

#include "gateway/ApiText.hpp"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace gateway {

/// One event as every client gets it.
struct Event {
    std::uint64_t seq = 0;
    /// The lines of the event stream, the empty one at the end included.
    SharedText text;
    /// When the message behind it was taken from the service.
    Clock::time_point taken;
    /// Bytes of all events up to and with this one.
    std::uint64_t endOffset = 0;
};

/// The whole state as an event, and the number of the last event that it holds.
struct Snapshot {
    std::uint64_t seq = 0;
    SharedText text;
};

/// The last events. A client is a position in here: the number of the last event that it has.
class EventRing {
public:
    /// What is kept, and how far a client may be behind.
    struct Bounds {
        std::size_t events = 1024;
        /// Sessions of any size pass through; this bounds what they hold together.
        std::uint64_t bytes = std::uint64_t{16} * 1024 * 1024;
        std::uint64_t eventsBehind = 256;
        std::uint64_t bytesBehind = std::uint64_t{256} * 1024;
    };

    explicit EventRing(const Bounds& bounds);

    const Bounds& bounds() const { return limits; }

    /// Drawn at each start: numbers of two runs are never mistaken for each other.
    const std::string& epoch() const { return ownEpoch; }
    std::uint64_t last() const { return lastSeq; }

    /// Encodes `data` with "seq" and "time" added, once for everybody.
    void publish(std::string_view kind, Json::Value data, Clock::time_point taken);

    /// Numbers that nobody will get: `count` messages were lost before they became events. Every
    /// client has then missed something.
    void skip(std::uint64_t count);

    /// Whether messages have been lost behind `position`.
    bool lostSince(std::uint64_t position) const { return position < lastLost; }

    /// Whether everything behind `position` is still here.
    bool reaches(std::uint64_t position) const;

    /// The event behind `position`, null at the end. Only for a position that the ring reaches.
    const Event* after(std::uint64_t position) const;

    /// Bytes of the events behind `position`, which the ring must reach.
    std::uint64_t bytesAfter(std::uint64_t position) const;

    /// "EPOCH-SEQ", the id of an event.
    std::string id(std::uint64_t seq) const { return ownEpoch + "-" + std::to_string(seq); }

    /// The position that an id names; nothing for one of another run or of no run at all.
    std::optional<std::uint64_t> position(std::string_view id) const;

private:
    Bounds limits;
    std::string ownEpoch;
    std::uint64_t lastSeq = 0;
    std::uint64_t lastLost = 0;
    std::uint64_t totalBytes = 0;
    std::uint64_t heldBytes = 0;
    std::deque<Event> events;
};

/// The lines of one event. An empty id leaves the line out.
std::string eventLines(std::string_view kind, const std::string& id, const std::string& data);

} // namespace gateway
