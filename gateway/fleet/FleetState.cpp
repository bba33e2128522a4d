#include "gateway/fleet/FleetState.hpp"

#include "gateway/Incidents.hpp"
#include "gateway/fleet/Payload.hpp"

#include <utility>

namespace gateway {

FleetState::FleetState(Incidents& allIncidents, std::function<void(Change& change)> onChange)
    : incidents(allIncidents), publish(std::move(onChange)) {}

void FleetState::take(const std::string& instance, std::string_view branch,
                      const std::string& payload, bool isRetained) {
    if (!payload::isBranch(branch)) {
        return;
    }
    auto device = all.find(instance);
    const bool isNew = device == all.end();
    if (isNew) {
        if (payload.empty()) {
            return;
        }
        if (all.size() >= kMaxInstances) {
            incidents.count(kLeftOut, "instances", instance);
            return;
        }
        device = all.emplace(instance, FleetDevice(instance)).first;
    }
    FleetDevice::Changes changes;
    try {
        switch (device->second.take(branch, payload, isRetained, changes)) {
        case FleetDevice::Bound::none:
            break;
        case FleetDevice::Bound::topics:
            incidents.count(kLeftOut, "topics", instance);
            break;
        case FleetDevice::Bound::bytes:
            incidents.count(kLeftOut, "bytes", instance);
            break;
        }
    } catch (const Json::Exception& error) {
        incidents.count(kLeftOut, "malformed",
                        instance + "/" + std::string(branch) + ": " + error.what());
    }
    if (isNew && device->second.isEmpty()) {
        all.erase(device);
        return;
    }
    tell(device, changes);
}

void FleetState::beginRetrieval(const std::string& instance) {
    if (const auto device = all.find(instance); device != all.end()) {
        device->second.beginRetrieval();
    }
}

void FleetState::endRetrieval(const std::string& instance) {
    if (const auto device = all.find(instance); device != all.end()) {
        FleetDevice::Changes changes;
        device->second.endRetrieval(changes);
        tell(device, changes);
    }
}

const FleetDevice* FleetState::device(std::string_view instance) const {
    const auto found = all.find(instance);
    return found == all.end() ? nullptr : &found->second;
}

Json::Value FleetState::rows() const {
    Json::Value list(Json::arrayValue);
    for (const auto& [instance, device] : all) {
        list.append(device.row());
    }
    return list;
}

void FleetState::tell(Devices::iterator device, FleetDevice::Changes& changes) {
    const bool isGone = device->second.isEmpty();
    if (isGone) {
        changes.push_back({"row-removed", Json::Value(Json::objectValue)});
    }
    for (Change& change : changes) {
        change.data["instance"] = device->first;
        publish(change);
    }
    if (isGone) {
        all.erase(device);
    }
}

} // namespace gateway
