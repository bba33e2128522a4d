#include "gateway/EventRing.hpp"

#include <array>
#include <charconv>
#include <cstdio>
#include <random>
#include <utility>

namespace gateway {
namespace {

std::string drawEpoch() {
    std::random_device random;
    std::array<char, sizeof("7c1f03aa")> text{};
    (void)std::snprintf(text.data(), text.size(), "%08x", static_cast<unsigned>(random()));
    return text.data();
}

} // namespace

EventRing::EventRing(const Bounds& bounds) : limits(bounds), ownEpoch(drawEpoch()) {}

void EventRing::publish(std::string_view kind, Json::Value data, Clock::time_point taken) {
    data["seq"] = Json::UInt64{++lastSeq};
    data["time"] = timeText(WallClock::now());
    auto text = std::make_shared<const std::string>(eventLines(kind, id(lastSeq), jsonText(data)));
    totalBytes += text->size();
    heldBytes += text->size();
    events.push_back({lastSeq, std::move(text), taken, totalBytes});
    while (events.size() > limits.events || (heldBytes > limits.bytes && events.size() > 1)) {
        heldBytes -= events.front().text->size();
        events.pop_front();
    }
}

void EventRing::skip(std::uint64_t count) {
    lastSeq += count;
    lastLost = lastSeq;
    heldBytes = 0;
    events.clear();
}

bool EventRing::reaches(std::uint64_t position) const {
    return position <= lastSeq && position + events.size() >= lastSeq;
}

const Event* EventRing::after(std::uint64_t position) const {
    // At most events.size(), as the ring reaches the position.
    const auto behind = static_cast<std::size_t>(lastSeq - position);
    return behind == 0 ? nullptr : &events[events.size() - behind];
}

std::uint64_t EventRing::bytesAfter(std::uint64_t position) const {
    const Event* const next = after(position);
    return next == nullptr ? 0 : totalBytes - next->endOffset + next->text->size();
}

std::optional<std::uint64_t> EventRing::position(std::string_view id) const {
    if (id.size() <= ownEpoch.size() || id.substr(0, ownEpoch.size()) != ownEpoch ||
        id[ownEpoch.size()] != '-') {
        return std::nullopt;
    }
    id.remove_prefix(ownEpoch.size() + 1);
    std::uint64_t seq = 0;
    const auto [end, error] = std::from_chars(id.data(), id.data() + id.size(), seq);
    if (error != std::errc() || end != id.data() + id.size()) {
        return std::nullopt;
    }
    return seq;
}

std::string eventLines(std::string_view kind, const std::string& id, const std::string& data) {
    std::string lines;
    lines.reserve(kind.size() + id.size() + data.size() + 32);
    lines.append("event: ").append(kind).append("\n");
    if (!id.empty()) {
        lines.append("id: ").append(id).append("\n");
    }
    lines.append("data: ").append(data).append("\n\n");
    return lines;
}

} // namespace gateway
