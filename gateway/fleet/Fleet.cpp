#include "gateway/fleet/Fleet.hpp"

#include "gateway/TopicText.hpp"

#include <array>
#include <cstdio>
#include <random>
#include <string_view>
#include <utility>

namespace gateway {
namespace {

/// A thousand devices that change once a second bring a thousand events a second: this is some
/// thirty seconds of them, of which a client may be behind by half.
constexpr std::uint64_t kKi = 1024;
constexpr EventRing::Bounds kBounds = {32 * kKi, 24 * kKi* kKi, 16 * kKi, 10 * kKi* kKi};

/// Of any number of fleets at one broker.
std::string drawClientId() {
    std::array<char, sizeof("kaikla-fleet-0123456789abcdef")> text{};
    std::random_device random;
    (void)std::snprintf(text.data(), text.size(), "kaikla-fleet-%08x%08x", random(), random());
    return text.data();
}

std::string everythingOf(const std::string& instance) {
    return topicBranch(instance) + "#";
}

} // namespace

Fleet::Fleet(const Options& options)
    : server(options.server, *this, kBounds),
      state(server.incidents(), [this](Change& change) { publish(change); }),
      source("broker", [this] { publishSource(); }),
      api({state, server.ring(), server.clients(), server.incidents(), source}),
      retrieval(retrievalHandlers()),
      broker(server.loop(), *options.broker, drawClientId(), std::nullopt, brokerHandlers()) {}

void Fleet::run() {
    server.run();
}

Answer Fleet::answer(const Question& question) {
    return api.answer(question);
}

Json::Value Fleet::snapshotJson() const {
    return api.devices();
}

Json::Value Fleet::sourceJson() const {
    return source.toJson();
}

void Fleet::tick() {
    if (broker.connected()) {
        retrieval.tick(Clock::now());
    }
}

void Fleet::everySecond() {
    constexpr std::chrono::seconds kStatesCome{5};
    if (!broker.connected()) {
        return;
    }
    source.answered();
    source.update(Clock::duration::zero());
    if (hasOldDevices && Clock::now() - connectedSince > kStatesCome) {
        hasOldDevices = false;
        for (const auto& [instance, device] : state.devices()) {
            retrieval.add(instance);
        }
    }
}

void Fleet::stop() {
    broker.disconnect([this] { server.loop().stop(); });
}

MqttClient::Handlers Fleet::brokerHandlers() {
    MqttClient::Handlers handlers;
    handlers.onConnected = [this] {
        connectedSince = Clock::now();
        hasOldDevices = true;
        source.answered();
        source.update(Clock::duration::zero());
        broker.subscribe(topicBranch("+") + kStateTopic);
    };
    handlers.onDisconnected = [this] {
        retrieval.reset();
        source.gone();
    };
    handlers.onSubscribed = [this](const std::string& filter, bool isGranted) {
        if (!isGranted) {
            server.incidents().count("subscription", "refused by the broker", filter);
        }
    };
    handlers.onMessage = [this](MqttMessage& message) { takeMessage(message); };
    handlers.onSettled = [this] { server.clients().pump(); };
    return handlers;
}

Retrieval::Handlers Fleet::retrievalHandlers() {
    return {[this](const std::string& instance) {
                state.beginRetrieval(instance);
                broker.subscribe(everythingOf(instance));
            },
            [this](const std::string& instance) {
                const FleetDevice* const device = state.device(instance);
                return device != nullptr && device->isWhole();
            },
            [this](const std::string& instance) { state.endRetrieval(instance); }};
}

void Fleet::takeMessage(const MqttMessage& message) {
    std::string_view topic = message.topic;
    if (!topic.starts_with(kTopicRoot)) {
        return;
    }
    topic.remove_prefix(kTopicRoot.size());
    const auto slash = topic.find('/');
    const std::string instance(topic.substr(0, slash));
    if (slash == std::string_view::npos || !isInstanceName(instance)) {
        return;
    }
    source.heard();
    state.take(instance, topic.substr(slash + 1), message.payload, message.retain);
    if (state.device(instance) != nullptr) {
        retrieval.add(instance);
        retrieval.heard(instance, message.retain, Clock::now());
    }
}

void Fleet::publish(Change& change) {
    if (change.kind == "row-removed") {
        const std::string instance = change.data["instance"].asString();
        retrieval.remove(instance);
        broker.unsubscribe(everythingOf(instance));
    }
    server.ring().publish(change.kind, std::move(change.data), Clock::now());
}

void Fleet::publishSource() {
    Json::Value data;
    data["source"] = source.toJson();
    server.ring().publish("source", std::move(data), Clock::now());
    server.clients().pump();
}

} // namespace gateway
