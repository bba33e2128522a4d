#include "gateway/fleet/FleetMetrics.hpp"

#include "gateway/Clients.hpp"
#include "gateway/EventRing.hpp"
#include "gateway/Incidents.hpp"
#include "gateway/Source.hpp"
#include "gateway/fleet/FleetState.hpp"

#include <chrono>
#include <utility>

namespace gateway {
namespace {

constexpr const char* kInstance = "instance";

/// One family with what `add` gives for each device.
template <typename Add>
void family(Exposition& out, const FleetState& devices, const char* name, const char* help,
            Add&& add) {
    out.family(name, "gauge", help);
    for (const auto& [instance, device] : devices.devices()) {
        add(instance, device);
    }
}

/// The same, of the devices whose row has a value under `key`.
template <typename Value>
void known(Exposition& out, const FleetState& devices, const char* name, const char* help,
           const char* key, Value&& value) {
    family(out, devices, name, help, [&](const std::string& instance, const FleetDevice& device) {
        if (const Json::Value& shown = device.quietRow()[key]; !shown.isNull()) {
            out.sample({{kInstance, instance}}, value(shown, device));
        }
    });
}

void addSources(Exposition& out, const FleetState& devices) {
    family(out, devices, "kaikla_up", "Whether the device is online and its service answers.",
           [&out](const std::string& instance, const FleetDevice& device) {
               const bool isLive =
                   device.isOnline() && device.quietRow()["source"].asString() == "live";
               out.sample({{kInstance, instance}}, isLive ? 1 : 0);
           });
    family(out, devices, "kaikla_device_info", "The device's NMOS id.",
           [&out](const std::string& instance, const FleetDevice& device) {
               if (const Json::Value& id = device.quietRow()["id"]; id.isString()) {
                   out.sample({{kInstance, instance}, {"device_id", id.asString()}}, 1);
               }
           });
    family(out, devices, "kaikla_source_last_contact_timestamp_seconds",
           "When the device was last heard of.",
           [&out](const std::string& instance, const FleetDevice& device) {
               const std::chrono::duration<double> heard = device.heard().time_since_epoch();
               if (heard.count() > 0) {
                   out.sample({{kInstance, instance}}, heard.count());
               }
           });
}

void addPtp(Exposition& out, const FleetState& devices) {
    known(
        out, devices, "kaikla_ptp_locked", "Whether the clock follows its grandmaster.", "ptp",
        [](const Json::Value& ptp, const FleetDevice&) { return ptp["locked"].asBool() ? 1 : 0; });
    known(out, devices, "kaikla_ptp_offset_seconds", "Offset from the grandmaster.", "ptp",
          [](const Json::Value& ptp, const FleetDevice&) {
              constexpr double kNanosecond = 1e-9;
              return ptp["offset_ns"].asDouble() * kNanosecond;
          });
    known(out, devices, "kaikla_ptp_mean_path_delay_seconds", "Mean path delay.", "ptp",
          [](const Json::Value&, const FleetDevice& device) {
              return std::chrono::duration<double>(device.pathDelay()).count();
          });
}

void addHealth(Exposition& out, const FleetState& devices) {
    const auto number = [](const Json::Value& shown, const FleetDevice&) {
        return shown.asDouble();
    };
    known(out, devices, "kaikla_sessions", "Media sessions.", "sessions", number);
    known(out, devices, "kaikla_streams", "Streams of all sessions.", "streams", number);
    family(out, devices, "kaikla_alarms", "Active alarms of sessions and streams.",
           [&out](const std::string& instance, const FleetDevice& device) {
               const Json::Value& alarms = device.quietRow()["alarms"];
               for (const char* const severity : AlarmCounts::kNames) {
                   if (!alarms.isNull()) {
                       out.sample({{kInstance, instance}, {"severity", severity}},
                                  alarms[severity].asDouble());
                   }
               }
           });
    family(out, devices, "kaikla_port_up", "Whether an Ethernet port is up.",
           [&out](const std::string& instance, const FleetDevice& device) {
               for (const auto& [port, isUp] : device.ports()) {
                   out.sample({{kInstance, instance}, {"port", port}}, isUp ? 1 : 0);
               }
           });
    family(out, devices, "kaikla_monitor_status",
           "Health: 0 unknown, 1 healthy, 2 partially healthy, 3 unhealthy.",
           [&out](const std::string& instance, const FleetDevice& device) {
               for (const char* const monitor : {"links", "synchronization", "overall"}) {
                   const auto health = healthOf(device.quietRow()[monitor].asString());
                   out.sample({{kInstance, instance}, {"monitor", monitor}},
                              static_cast<double>(health.value_or(Health::unknown)));
               }
           });
}

} // namespace

std::string fleetMetricsText(const FleetParts& parts) {
    Exposition out;
    addSources(out, parts.devices);
    addPtp(out, parts.devices);
    addHealth(out, parts.devices);
    out.family("kaikla_gateway_mqtt_connected", "gauge",
               "Whether there is a connection to the broker.");
    out.sample(parts.source.state() == SourceState::live ? 1 : 0);
    out.family("kaikla_gateway_left_out_messages_total", "counter",
               "Messages of devices that are malformed or exceed a bound.");
    for (const auto& [reason, number] : parts.incidents.counts(FleetState::kLeftOut)) {
        out.sample({{"reason", reason}}, static_cast<double>(number));
    }
    out.server(parts.ring, parts.clients, parts.incidents);
    return std::move(out.text);
}

} // namespace gateway
