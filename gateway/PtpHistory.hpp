#pragma once

#include "gateway/ApiText.hpp"

#include <json/value.h>

#include <cstdint>
#include <deque>

namespace gateway {

/// The PTP offset of the last hour: one row for each second in which it was known.
class PtpHistory {
public:
    static constexpr std::chrono::seconds kLongest{3600};

    /// The offset and the lock from now on, as a message has told them.
    void take(std::int64_t offsetNs, bool locked);

    /// Completes the row of the second that ends. Without `isKnown` there is none: nobody knows
    /// whether the last value still holds.
    void tick(WallClock::time_point now, bool isKnown);

    /// The rows of the last seconds, oldest first: [unix time, min, max, last, locked], offsets in
    /// nanoseconds. A row is locked when the clock was so throughout.
    Json::Value rows(std::chrono::seconds span, WallClock::time_point now) const;

private:
    struct Row {
        std::int64_t time = 0;
        std::int64_t min = 0;
        std::int64_t max = 0;
        std::int64_t last = 0;
        bool locked = false;
    };

    bool hasValue = false;
    bool lastLocked = false;
    Row current;
    std::deque<Row> history;
};

} // namespace gateway
