#include "gateway/PtpHistory.hpp"

#include <algorithm>

namespace gateway {
namespace {

std::int64_t unixSeconds(WallClock::time_point time) {
    return std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
}

} // namespace

void PtpHistory::take(std::int64_t offsetNs, bool locked) {
    current.min = hasValue ? std::min(current.min, offsetNs) : offsetNs;
    current.max = hasValue ? std::max(current.max, offsetNs) : offsetNs;
    current.last = offsetNs;
    current.locked = locked && (current.locked || !hasValue);
    lastLocked = locked;
    hasValue = true;
}

void PtpHistory::tick(WallClock::time_point now, bool isKnown) {
    if (!hasValue) {
        return;
    }
    current.time = unixSeconds(now);
    // The clock may have been set back.
    while (!history.empty() && history.back().time >= current.time) {
        history.pop_back();
    }
    if (isKnown) {
        history.push_back(current);
    }
    while (!history.empty() && history.front().time <= current.time - kLongest.count()) {
        history.pop_front();
    }
    // The next second begins with what holds now.
    current.min = current.max = current.last;
    current.locked = lastLocked;
}

Json::Value PtpHistory::rows(std::chrono::seconds span, WallClock::time_point now) const {
    Json::Value list(Json::arrayValue);
    const std::int64_t first = unixSeconds(now) - span.count();
    for (const Row& row : history) {
        if (row.time > first) {
            Json::Value json(Json::arrayValue);
            json.append(Json::Int64{row.time});
            json.append(Json::Int64{row.min});
            json.append(Json::Int64{row.max});
            json.append(Json::Int64{row.last});
            json.append(row.locked);
            list.append(std::move(json));
        }
    }
    return list;
}

} // namespace gateway
