#pragma once

#include "gateway/fleet/FleetDevice.hpp"

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace gateway {

class Incidents;

/// Every device of which the broker has told, by the name of its instance.
class FleetState {
public:
    /// More are left out.
    static constexpr std::size_t kMaxInstances = 5000;
    /// What is told and not taken, counted by its reason: "malformed", or the bound that it
    /// exceeds.
    static constexpr const char* kLeftOut = "left out";

    /// `publish` is called for each change, with the instance among its data.
    FleetState(Incidents& incidents, std::function<void(Change& change)> publish);

    /// A message about one of the instance's topics.
    void take(const std::string& instance, std::string_view branch, const std::string& payload,
              bool isRetained);

    void beginRetrieval(const std::string& instance);
    void endRetrieval(const std::string& instance);

    using Devices = std::map<std::string, FleetDevice, std::less<>>;
    const Devices& devices() const { return all; }
    /// Null when there is none of this name.
    const FleetDevice* device(std::string_view instance) const;

    /// The table: a row each.
    Json::Value rows() const;

private:
    void tell(Devices::iterator device, FleetDevice::Changes& changes);

    Incidents& incidents;
    std::function<void(Change& change)> publish;
    Devices all;
};

} // namespace gateway
