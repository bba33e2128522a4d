#pragma once

#include "gateway/Clients.hpp"
#include "gateway/DeviceState.hpp"
#include "gateway/EventRing.hpp"
#include "gateway/Incidents.hpp"
#include "gateway/Monitors.hpp"
#include "gateway/PtpHistory.hpp"
#include "gateway/Source.hpp"

#include <cstdint>

namespace gateway {

/// How the publishing at a broker goes.
struct MqttFigures {
    bool isConnected = false;
    /// What has never been published, because something newer took its place or the broker was
    /// away.
    std::uint64_t superseded = 0;
};

/// What the gateway is made of, for those who describe it.
struct Parts {
    const DeviceState& device;
    const Monitors& monitors;
    const PtpHistory& history;
    const EventRing& ring;
    const Clients& clients;
    const Incidents& incidents;
    const Source& source;
    /// Messages of the service that were discarded because the inbox was full.
    const std::uint64_t& inboxDropped;
    /// Null without a broker.
    const MqttFigures* mqtt = nullptr;
};

} // namespace gateway
