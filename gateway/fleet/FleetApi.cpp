#include "gateway/fleet/FleetApi.hpp"

#include "gateway/Clients.hpp"
#include "gateway/EventRing.hpp"
#include "gateway/Source.hpp"
#include "gateway/fleet/FleetState.hpp"

#include <memory>

namespace gateway {

Answer FleetApi::answer(const Question& question) const {
    constexpr std::string_view kDevices = "/api/v1/devices/";
    const std::string_view path = question.path;
    if (path == "/api/v1/devices") {
        return {200,
                "application/json",
                recentDevices.get(parts.ring.last(), [this] { return devices(); }),
                {}};
    }
    if (path.starts_with(kDevices)) {
        return deviceAnswer(path.substr(kDevices.size()));
    }
    if (path == "/api/v1/clients") {
        Json::Value body = bodyHead(parts.ring);
        body["clients"] = parts.clients.toJson();
        return jsonAnswer(body);
    }
    if (path == "/metrics") {
        return {200,
                Exposition::kType,
                std::make_shared<const std::string>(fleetMetricsText(parts)),
                {}};
    }
    if (path == "/healthz") {
        return textAnswer(200, "ok\n");
    }
    if (path == "/readyz") {
        return parts.source.state() == SourceState::live
                   ? textAnswer(200, "ok\n")
                   : problem(503, "Service Unavailable", "The broker is not there.");
    }
    return page.answer(question).value_or(
        problem(404, "Not Found", "There is nothing at this path."));
}

Json::Value FleetApi::devices() const {
    Json::Value json = bodyHead(parts.ring);
    json["started"] = timeText(started);
    json["source"] = parts.source.toJson();
    json["devices"] = parts.devices.rows();
    return json;
}

Answer FleetApi::deviceAnswer(std::string_view instance) const {
    const FleetDevice* const device = parts.devices.device(instance);
    if (device == nullptr) {
        return problem(404, "Not Found", "No device of this name has been heard of.");
    }
    Json::Value body = device->toJson();
    const Json::Value common = bodyHead(parts.ring);
    for (const auto& name : common.getMemberNames()) {
        body[name] = common[name];
    }
    body["started"] = timeText(started);
    body["instance"] = std::string(instance);
    body["row"] = device->row();
    return jsonAnswer(body);
}

} // namespace gateway
