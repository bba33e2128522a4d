#include "gateway/Clients.hpp"

#include "gateway/EventStream.hpp"

#include <algorithm>

namespace gateway {

Clients::Admission Clients::admit(const std::string& address) const {
    const auto found = byAddress.find(address);
    if (found != byAddress.end() && found->second >= kMaxFromOneAddress) {
        return Admission::tooManyFromThere;
    }
    return streams.size() >= kMax ? Admission::full : Admission::welcome;
}

void Clients::add(EventStream& stream) {
    streams.insert(&stream);
    ++byAddress[stream.address()];
}

void Clients::remove(EventStream& stream) {
    streams.erase(&stream);
    const auto found = byAddress.find(stream.address());
    if (--found->second == 0) {
        byAddress.erase(found);
    }
}

// A stream ends with its last operation, hence never inside one of these loops.

void Clients::pump() {
    for (EventStream* const stream : streams) {
        stream->pump();
    }
}

void Clients::sendHeartbeat(const SharedText& text) {
    for (EventStream* const stream : streams) {
        stream->sendHeartbeat(text);
    }
}

void Clients::checkProgress(Clock::time_point now) {
    for (EventStream* const stream : streams) {
        stream->checkProgress(now);
    }
}

Json::Value Clients::toJson() const {
    Json::Value list(Json::arrayValue);
    for (const EventStream* const stream : streams) {
        list.append(stream->toJson());
    }
    return list;
}

void Clients::countDelivery(Clock::duration took) {
    const double seconds = std::chrono::duration<double>(took).count();
    const auto* const bound =
        std::lower_bound(Deliveries::kBoundsS.begin(), Deliveries::kBoundsS.end(), seconds);
    ++delivered.number.at(static_cast<std::size_t>(bound - Deliveries::kBoundsS.begin()));
    delivered.sumS += seconds;
}

} // namespace gateway
