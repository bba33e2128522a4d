#pragma once

#include "gateway/Answer.hpp"
#include "gateway/Page.hpp"
#include "gateway/fleet/FleetMetrics.hpp"

#include <json/value.h>

#include <string_view>

namespace gateway {

/// Every path of the fleet but the event stream: what it answers. It reads and never changes
/// anything.
class FleetApi {
public:
    explicit FleetApi(const FleetParts& describedParts) : parts(describedParts) {}

    Answer answer(const Question& question) const;

    /// The table of devices.
    Json::Value devices() const;

private:
    Answer deviceAnswer(std::string_view instance) const;

    FleetParts parts;
    WallClock::time_point started = WallClock::now();
    // The view of one device is the page that the device's own gateway has.
    Page page{{{"/", "fleet.html"}, {"/device", "index.html"}}};
    mutable RecentBody recentDevices;
};

} // namespace gateway
