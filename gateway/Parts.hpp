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
};

} // namespace gateway
