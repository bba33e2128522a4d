#include "gateway/Metrics.hpp"

#include <array>
#include <cstdio>
#include <set>
#include <string_view>

namespace gateway {
namespace {

constexpr std::size_t kMaxLabelled = 200;
constexpr double kNanosecond = 1e-9;

/// A label's value: ASCII of bounded length. What Prometheus would read is escaped, and so is what
/// may not be UTF-8.
std::string escaped(std::string_view text) {
    constexpr std::string_view::size_type kLongest = 128;
    std::string result;
    for (const char c : text.substr(0, kLongest)) {
        const auto byte = static_cast<unsigned char>(c);
        constexpr unsigned char kFirstPrintable = 0x20;
        constexpr unsigned char kDelete = 0x7f;
        if (c == '\\' || c == '"') {
            result += '\\';
            result += c;
        } else if (byte >= kFirstPrintable && byte < kDelete) {
            result += c;
        } else {
            std::array<char, sizeof("\\\\x00")> code{};
            (void)std::snprintf(code.data(), code.size(), "\\\\x%02x", unsigned{byte});
            result += code.data();
        }
    }
    return result;
}

class Exposition {
public:
    void family(const std::string& familyName, const char* type, const char* help) {
        name = familyName;
        text += "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
    }

    void sample(double value) { line("", value); }

    /// A value that two labels share after they have been cut is given once.
    void sample(const char* label, std::string_view labelValue, double value) {
        const std::string labels = std::string("{") + label + "=\"" + escaped(labelValue) + "\"}";
        if (written.insert(name + labels).second) {
            line(labels, value);
        }
    }

    void line(const std::string& labels, double value) {
        std::array<char, 32> number{};
        (void)std::snprintf(number.data(), number.size(), " %.15g\n", value);
        text += name + labels + number.data();
    }

    /// As one of the samples of a histogram.
    void part(const char* suffix, const std::string& labels, double value) {
        const std::string whole = name;
        name += suffix;
        line(labels, value);
        name = whole;
    }

    std::string text;

private:
    std::string name;
    std::set<std::string> written;
};

void addSource(Exposition& out, const Parts& parts) {
    out.family("kaikla_up", "gauge", "Whether the service answers.");
    out.sample(parts.source.state() == SourceState::live ? 1 : 0);
    if (!parts.device.deviceId().empty()) {
        out.family("kaikla_device_info", "gauge", "The device's NMOS id.");
        out.sample("device_id", parts.device.deviceId(), 1);
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
        out.sample("severity", AlarmCounts::kNames.at(i),
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
        out.sample("session", std::to_string(id),
                   static_cast<double>(parts.monitors.sessionHealth(id)));
    }
}

void addHealth(Exposition& out, const Parts& parts) {
    if (!parts.device.ports().empty()) {
        out.family("kaikla_port_up", "gauge", "Whether an Ethernet port is up.");
        std::size_t number = 0;
        for (const auto& [name, port] : parts.device.ports()) {
            if (++number <= kMaxLabelled) {
                out.sample("port", name, port["up"].asBool() ? 1 : 0);
            }
        }
    }
    out.family("kaikla_monitor_status", "gauge",
               "Health: 0 unknown, 1 healthy, 2 partially healthy, 3 unhealthy.");
    out.sample("monitor", "overall", static_cast<double>(parts.monitors.overallHealth()));
    out.sample("monitor", "links", static_cast<double>(parts.monitors.linksHealth()));
    out.sample("monitor", "synchronization",
               static_cast<double>(parts.monitors.synchronizationHealth()));
}

void addIncidents(Exposition& out, const Parts& parts, const char* kind, const char* family,
                  const char* help) {
    out.family(family, "counter", help);
    for (const auto& [reason, number] : parts.incidents.counts(kind)) {
        out.sample("reason", reason, static_cast<double>(number));
    }
}

void addDeliveries(Exposition& out, const Clients::Deliveries& deliveries) {
    out.family(
        "kaikla_gateway_delivery_seconds", "histogram",
        "From the message taken from the service to the last byte of its event handed over.");
    double number = 0;
    for (std::size_t i = 0; i < deliveries.number.size(); ++i) {
        number += static_cast<double>(deliveries.number.at(i));
        std::array<char, 32> bound{"+Inf"};
        if (i < Clients::Deliveries::kBoundsS.size()) {
            (void)std::snprintf(bound.data(), bound.size(), "%g",
                                Clients::Deliveries::kBoundsS.at(i));
        }
        out.part("_bucket", std::string("{le=\"") + bound.data() + "\"}", number);
    }
    out.part("_sum", "", deliveries.sumS);
    out.part("_count", "", number);
}

void addGateway(Exposition& out, const Parts& parts) {
    out.family("kaikla_gateway_clients", "gauge", "Clients of the event stream.");
    out.sample(static_cast<double>(parts.clients.size()));
    out.family("kaikla_gateway_events_total", "counter", "Events made.");
    out.sample(static_cast<double>(parts.ring.last()));
    out.family("kaikla_gateway_dropped_events_total", "counter",
               "Events that clients have missed, each client's counted.");
    out.sample(static_cast<double>(parts.clients.droppedEvents()));
    addIncidents(out, parts, Incidents::kResync, "kaikla_gateway_resyncs_total",
                 "Clients that have missed events and were given the whole state.");
    addIncidents(out, parts, Incidents::kEviction, "kaikla_gateway_evictions_total",
                 "Connections closed by the gateway.");
    addIncidents(out, parts, Incidents::kRefusal, "kaikla_gateway_refusals_total",
                 "Connections and requests refused.");
    out.family("kaikla_gateway_inbox_dropped_messages_total", "counter",
               "Messages of the service discarded because the inbox was full.");
    out.sample(static_cast<double>(parts.inboxDropped));
    addDeliveries(out, parts.clients.deliveries());
    if (parts.mqtt != nullptr) {
        out.family("kaikla_gateway_mqtt_connected", "gauge", "Whether the broker is connected.");
        out.sample(parts.mqtt->isConnected ? 1 : 0);
        out.family("kaikla_gateway_mqtt_superseded_total", "counter",
                   "Values that the broker was not told, because newer ones took their place.");
        out.sample(static_cast<double>(parts.mqtt->superseded));
    }
}

} // namespace

std::string metricsText(const Parts& parts, bool withSessions) {
    Exposition out;
    addSource(out, parts);
    addPtp(out, parts.device);
    addSessions(out, parts, withSessions);
    addHealth(out, parts);
    addGateway(out, parts);
    return std::move(out.text);
}

} // namespace gateway
