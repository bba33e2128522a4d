#include "gateway/EventStream.hpp"

#include "gateway/Clients.hpp"
#include "gateway/Transport.hpp"

#include <boost/asio/buffer.hpp>

#include <algorithm>
#include <array>
#include <deque>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace gateway {
namespace {

/// The library's templates stay in this file.
class Stream final : public EventStream, public std::enable_shared_from_this<Stream> {
public:
    Stream(Transport transport, Shared& shared, std::string address);
    virtual ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    Stream(Stream&&) = delete;
    Stream& operator=(Stream&&) = delete;

    void start(SharedText head, std::optional<std::uint64_t> lastSeen);
    void pump() override;
    void sendHeartbeat(const SharedText& text) override;
    void checkProgress(Clock::time_point now) override;
    const std::string& address() const override { return peer; }
    Json::Value toJson() const override;

private:
    struct Item {
        SharedText text;
        /// When the event's message came; nothing for what is no event.
        std::optional<Clock::time_point> taken;
    };

    void checkBounds();
    void fillQueue();
    void resync();
    void write();
    void written(std::size_t bytes);
    void watchForEnd();
    void close();
    void evict(const std::string& reason);

    Transport transport;
    Shared& shared;
    std::string peer;
    const WallClock::time_point since = WallClock::now();
    const Clock::time_point joined = Clock::now();

    std::uint64_t position = 0;
    /// What it had missed when it came back, up to this number, does not count as being behind.
    std::uint64_t replayUntil = 0;
    bool isTooFarBehind = false;
    std::deque<Clock::time_point> resyncs;
    std::uint64_t sentEvents = 0;
    std::uint64_t droppedEvents = 0;

    std::vector<Item> queue;
    /// Bytes of the queue's first item that have left.
    std::size_t offset = 0;
    bool isWriting = false;
    bool isClosed = false;
    Clock::time_point lastProgress = joined;
    std::array<boost::asio::const_buffer, kMaxWritten> buffers;
};

Stream::Stream(Transport connection, Shared& sharedParts, std::string address)
    : transport(std::move(connection)), shared(sharedParts), peer(std::move(address)) {
    queue.reserve(kMaxWritten);
    shared.clients.add(*this);
}

Stream::~Stream() {
    shared.clients.remove(*this);
}

void Stream::start(SharedText head, std::optional<std::uint64_t> lastSeen) {
    queue.push_back({std::move(head), {}});
    if (lastSeen && shared.ring.reaches(*lastSeen)) {
        position = *lastSeen;
        replayUntil = shared.ring.last();
    } else {
        Snapshot snapshot = shared.snapshot(0);
        position = snapshot.seq;
        queue.push_back({std::move(snapshot.text), {}});
    }
    watchForEnd();
    write();
}

void Stream::pump() {
    if (isClosed) {
        return;
    }
    if (isWriting) {
        checkBounds();
        return;
    }
    fillQueue();
    write();
}

void Stream::sendHeartbeat(const SharedText& text) {
    if (!isWriting && !isClosed) {
        queue.push_back({text, {}});
        write();
    }
}

void Stream::checkProgress(Clock::time_point now) {
    if (isWriting && !isClosed && now - lastProgress > kStallLimit) {
        evict("stalled");
    }
}

void Stream::close() {
    isClosed = true;
    transport.close();
}

Json::Value Stream::toJson() const {
    const bool isReached = shared.ring.reaches(position);
    Json::Value json;
    json["address"] = peer;
    json["since"] = timeText(since);
    json["sent_events"] = Json::UInt64{sentEvents};
    json["behind_events"] = Json::UInt64{shared.ring.last() - position};
    json["behind_bytes"] = isReached ? Json::UInt64{shared.ring.bytesAfter(position)} : 0;
    json["dropped_events"] = Json::UInt64{droppedEvents};
    return json;
}

void Stream::checkBounds() {
    if (!shared.ring.reaches(position)) {
        isTooFarBehind = true;
        return;
    }
    const EventRing::Bounds& bounds = shared.ring.bounds();
    const std::uint64_t from = std::max(position, replayUntil);
    const std::uint64_t events = shared.ring.last() - from;
    // A single event of any size is not yet being behind.
    isTooFarBehind = isTooFarBehind || events > bounds.eventsBehind ||
                     (events > 1 && shared.ring.bytesAfter(from) > bounds.bytesBehind);
}

void Stream::fillQueue() {
    if (isTooFarBehind || !shared.ring.reaches(position)) {
        resync();
        return;
    }
    while (queue.size() < kMaxWritten) {
        const Event* const event = shared.ring.after(position);
        if (event == nullptr) {
            return;
        }
        queue.push_back({event->text, event->taken});
        position = event->seq;
    }
}

void Stream::resync() {
    // Otherwise more has happened at once than the ring holds, or messages were lost before.
    const bool isOwnFault = isTooFarBehind && !shared.ring.lostSince(position);
    const std::string reason = isOwnFault ? "slow" : "overrun";
    shared.incidents.count(Incidents::kResync, reason, peer);
    if (isOwnFault) {
        const Clock::time_point now = Clock::now();
        std::erase_if(resyncs, [now](auto time) { return now - time > std::chrono::minutes(1); });
        resyncs.push_back(now);
        if (resyncs.size() >= kResyncsInMinute) {
            evict("slow");
            return;
        }
    }
    Snapshot snapshot = shared.snapshot(position);
    const std::uint64_t dropped = snapshot.seq - position;
    droppedEvents += dropped;
    shared.clients.countDropped(dropped);

    // It has the id of the last event before the gap: a client that is cut off right behind it
    // comes back with a position from which the gap shows.
    Json::Value data;
    data["seq"] = Json::UInt64{position};
    data["time"] = timeText(WallClock::now());
    data["reason"] = reason;
    data["dropped"] = Json::UInt64{dropped};
    const std::string lines = eventLines("resync", shared.ring.id(position), jsonText(data));
    queue.push_back({std::make_shared<const std::string>(lines), {}});
    queue.push_back({std::move(snapshot.text), {}});
    position = snapshot.seq;
    isTooFarBehind = false;
}

void Stream::write() {
    if (queue.empty() || isClosed) {
        return;
    }
    std::transform(queue.begin(), queue.end(), buffers.begin(),
                   [](const Item& item) { return boost::asio::buffer(*item.text); });
    buffers.front() += offset;
    if (!isWriting) {
        isWriting = true;
        lastProgress = Clock::now();
    }
    transport.async_write_some(
        std::span<const boost::asio::const_buffer>(buffers.data(), queue.size()),
        [self = shared_from_this()](const auto& error, std::size_t bytes) {
            if (error || self->isClosed) {
                self->close();
                return;
            }
            self->written(bytes);
        });
}

void Stream::written(std::size_t bytes) {
    lastProgress = Clock::now();
    offset += bytes;
    auto item = queue.begin();
    for (; item != queue.end() && offset >= item->text->size(); ++item) {
        offset -= item->text->size();
        if (item->taken) {
            ++sentEvents;
            // What was there before the client came says nothing about the way to it.
            if (*item->taken >= joined) {
                shared.clients.countDelivery(lastProgress - *item->taken);
            }
        }
    }
    queue.erase(queue.begin(), item);
    if (queue.empty()) {
        isWriting = false;
        fillQueue();
    }
    write();
}

/// A client has nothing more to say; reading shows when it goes. Whatever it does say ends in the
/// same bytes as everybody's.
void Stream::watchForEnd() {
    static std::array<char, 4096> discarded;
    transport.async_read_some(boost::asio::buffer(discarded),
                              [self = shared_from_this()](const auto& error, std::size_t) {
                                  if (error || self->isClosed) {
                                      self->close();
                                      return;
                                  }
                                  self->watchForEnd();
                              });
}

void Stream::evict(const std::string& reason) {
    shared.incidents.count(Incidents::kEviction, reason, peer);
    close();
}

} // namespace

void EventStream::serve(Transport transport, Shared& shared, const std::string& address,
                        SharedText head, std::optional<std::uint64_t> since) {
    std::make_shared<Stream>(std::move(transport), shared, address)->start(std::move(head), since);
}

} // namespace gateway
