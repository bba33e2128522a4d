#include "gateway/Exposition.hpp"

#include "gateway/Clients.hpp"
#include "gateway/EventRing.hpp"

#include <array>
#include <cstdio>

namespace gateway {
namespace {

constexpr std::string_view::size_type kLongestLabel = 128;

/// ASCII of bounded length. What Prometheus would read is escaped, and so is what may not be UTF-8.
std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text.substr(0, kLongestLabel)) {
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

} // namespace

void Exposition::family(const std::string& familyName, const char* type, const char* help) {
    name = familyName;
    text += "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

void Exposition::sample(const Labels& labels, double value) {
    std::string all;
    bool isChanged = false;
    for (const auto& [label, labelValue] : labels) {
        const std::string shown = escaped(labelValue);
        // One of just this length may be what a longer one is cut to.
        isChanged = isChanged || shown != labelValue || labelValue.size() == kLongestLabel;
        all.append(all.empty() ? "{" : ",").append(label).append("=\"").append(shown).append("\"");
    }
    all += '}';
    if (!isChanged || changed.insert(name + all).second) {
        line(all, value);
    }
}

void Exposition::part(const char* suffix, const std::string& labels, double value) {
    const std::string whole = name;
    name += suffix;
    line(labels, value);
    name = whole;
}

void Exposition::line(const std::string& labels, double value) {
    std::array<char, 32> number{};
    (void)std::snprintf(number.data(), number.size(), " %.15g\n", value);
    text.append(name).append(labels).append(number.data());
}

void Exposition::server(const EventRing& ring, const Clients& clients, const Incidents& happened) {
    family("kaikla_gateway_clients", "gauge", "Clients of the event stream.");
    sample(static_cast<double>(clients.size()));
    family("kaikla_gateway_events_total", "counter", "Events made.");
    sample(static_cast<double>(ring.last()));
    family("kaikla_gateway_dropped_events_total", "counter",
           "Events that clients have missed, each client's counted.");
    sample(static_cast<double>(clients.droppedEvents()));
    // An increase from nothing to 1 is none: what an alarm is set on begins with 0.
    incidents(happened.counts(Incidents::kResync, {"overrun", "slow"}),
              "kaikla_gateway_resyncs_total",
              "Clients that have missed events and were given the whole state.");
    incidents(happened.counts(Incidents::kEviction, {"room", "slow", "stalled"}),
              "kaikla_gateway_evictions_total", "Connections closed by the gateway.");
    incidents(happened.counts(Incidents::kRefusal), "kaikla_gateway_refusals_total",
              "Connections and requests refused.");
    deliveries(clients);
}

void Exposition::incidents(const Incidents::Counts& counts, const char* familyName,
                           const char* help) {
    family(familyName, "counter", help);
    for (const auto& [reason, number] : counts) {
        sample({{"reason", reason}}, static_cast<double>(number));
    }
}

void Exposition::deliveries(const Clients& clients) {
    const Clients::Deliveries& deliveries = clients.deliveries();
    family("kaikla_gateway_delivery_seconds", "histogram",
           "From the message taken from the service to the last byte of its event handed over.");
    double number = 0;
    for (std::size_t i = 0; i < deliveries.number.size(); ++i) {
        number += static_cast<double>(deliveries.number.at(i));
        std::array<char, 32> bound{"+Inf"};
        if (i < Clients::Deliveries::kBoundsS.size()) {
            (void)std::snprintf(bound.data(), bound.size(), "%g",
                                Clients::Deliveries::kBoundsS.at(i));
        }
        part("_bucket", std::string("{le=\"") + bound.data() + "\"}", number);
    }
    part("_sum", "", deliveries.sumS);
    part("_count", "", number);
}

} // namespace gateway
