#pragma once

#include "gateway/Exposition.hpp"

#include <string>

namespace gateway {

class FleetState;
class Source;

/// What the fleet is made of, for those who describe it.
struct FleetParts {
    const FleetState& devices;
    const EventRing& ring;
    const Clients& clients;
    const Incidents& incidents;
    /// The broker.
    const Source& source;
};

/// The devices' metrics under the names that a device's own gateway has for them, each with the
/// label "instance".
std::string fleetMetricsText(const FleetParts& parts);

} // namespace gateway
