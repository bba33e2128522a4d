#include "gateway/Metrics.hpp"

#include "gateway/Exposition.hpp"

#include <utility>

namespace gateway {
namespace {

constexpr std::size_t kMaxLabelled = 200;
constexpr double kNanosecond = 1e-9;

void addSource(Exposition& out, const Parts& parts) {
    out.family("kaikla_up", "gauge", "Whether the service answers.");
    out.sample(parts.source.state() == SourceState::live ? 1 : 0);
    if (!parts.device.deviceId().empty()) {
        out.family("kaikla_device_info", "gauge", "The device's NMOS id.");
        out.sample({{"device_id", parts.device.deviceId()}}, 1);
    }
    if (const auto contact = parts.source.contact()) {
        const auto time = WallClock::now().time_since_epoch() - (Clock::now() - *contact);
        out.family("kaikla_source_last_contact_timestamp_seconds", "gauge",
                   "When the service was last heard of.");
        out.sample(std::chrono::duration<double>(time).count());
    }
}

void addPtp(Exposition& out, const DeviceState& device) {
    const Json::Value& ptp = device.ptp();
    if (!ptp.isNull()) {
        out.family("kaikla_ptp_locked", "gauge", "Whether the clock follows its grandmaster.");
        out.sample(ptp["locked"].asBool() ? 1 : 0);
        out.family("kaikla_ptp_offset_seconds", "gauge", "Offset from the grandmaster.");
        out.sample(ptp["offset_ns"].asDouble() * kNanosecond);
        out.family("kaikla_ptp_mean_path_delay_seconds", "gauge", "Mean path delay.");
        out.sample(ptp["mean_path_delay_ns"].asDouble() * kNanosecond);
    }
    out.family("kaikla_ptp_grandmaster_changes_total", "counter",
               "How often the grandmaster has changed.");
    out.sample(static_cast<double>(device.grandmasterChanges()));
}

void addSessions(Exposition& out, const Parts& parts, bool withSessions) {
    const DeviceState::Totals totals = parts.device.totals();
    out.family("kaikla_sessions", "gauge", "Media sessions.");
    out.sample(static_cast<double>(totals.sessions));
    out.family("kaikla_streams", "gauge", "Streams of all sessions.");
    out.sample(static_cast<double>(totals.streams));
    out.family("kaikla_alarms", "gauge", "Active alarms of sessions and streams.");
    for (std::size_t i = 0; i < AlarmCounts::severities; ++i) {
        out.sample({{"severity", AlarmCounts::kNames.at(i)}},
                   static_cast<double>(totals.alarms.number.at(i)));
    }
    if (!withSessions) {
        return;
    }
    out.family("kaikla_session_monitor_status", "gauge",
               "A session's health: 1 healthy, 2 partially healthy, 3 unhealthy.");
    std::size_t number = 0;
    for (const auto& [id, session] : parts.device.sessions()) {
        if (++number > kMaxLabelled) {
            break;
        }
        out.sample({{"session", std::to_string(id)}},
                   static_cast<double>(parts.monitors.sessionHealth(id)));
    }
}

void addHealth(Exposition& out, const Parts& parts) {
    if (!parts.device.ports().empty()) {
        out.family("kaikla_port_up", "gauge", "Whether an Ethernet port is up.");
        std::size_t number = 0;
        for (const auto& [name, port] : parts.device.ports()) {
            if (++number <= kMaxLabelled) {
                out.sample({{"port", name}}, port["up"].asBool() ? 1 : 0);
            }
        }
    }
    out.family("kaikla_monitor_status", "gauge",
               "Health: 0 unknown, 1 healthy, 2 partially healthy, 3 unhealthy.");
    out.sample({{"monitor", "overall"}}, static_cast<double>(parts.monitors.overallHealth()));
    out.sample({{"monitor", "links"}}, static_cast<double>(parts.monitors.linksHealth()));
    out.sample({{"monitor", "synchronization"}},
               static_cast<double>(parts.monitors.synchronizationHealth()));
}

} // namespace

std::string metricsText(const Parts& parts, bool withSessions) {
    Exposition out;
    addSource(out, parts);
    addPtp(out, parts.device);
    addSessions(out, parts, withSessions);
    addHealth(out, parts);
    out.server(parts.ring, parts.clients, parts.incidents);
    out.family("kaikla_gateway_inbox_dropped_messages_total", "counter",
               "Messages of the service discarded because the inbox was full.");
    out.sample(static_cast<double>(parts.inboxDropped));
    if (parts.mqtt != nullptr) {
        out.family("kaikla_gateway_mqtt_connected", "gauge", "Whether the broker is connected.");
        out.sample(parts.mqtt->isConnected ? 1 : 0);
        out.family("kaikla_gateway_mqtt_superseded_total", "counter",
                   "Values that the broker was not told, because newer ones took their place.");
        out.sample(static_cast<double>(parts.mqtt->superseded));
    }
    return std::move(out.text);
}

} // namespace gateway
