#include "tools/kaikla-sim/SimulatedDevice.hpp"

#include "tools/kaikla-sim/ScenarioPlayer.hpp"

#include <algorithm>
#include <iterator>
#include <ostream>
#include <vector>

namespace sim {

namespace {

/// Room for the library's default and for two repetitions of the whole state.
int queueLimit(const Scenario& scenario) {
    constexpr std::size_t kLibraryDefault = 1000;
    constexpr std::size_t kMost = 1'000'000'000;
    return static_cast<int>(std::min(kLibraryDefault + 2 * scenario.events.size(), kMost));
}

bool isReady(const zmq_pollitem_t& item) {
    return item.revents != 0;
}

} // namespace

SimulatedDevice::SimulatedDevice(zmq::context_t& context, const Scenario& scenarioToPlay)
    : scenario(scenarioToPlay), nmosNode(context, scenarioToPlay.deviceId) {
    for (const ServiceInfo& info : allServices()) {
        publishers.emplace_back(context, info.service, queueLimit(scenario));
    }
}

NotificationPublisher& SimulatedDevice::publisherOf(const Kind& kind) {
    return *std::next(publishers.begin(), static_cast<std::ptrdiff_t>(kind.service));
}

void SimulatedDevice::run(const PlayOptions& options, int stopDescriptor, std::ostream& report) {
    std::vector<zmq_pollitem_t> items;
    for (NotificationPublisher& publisher : publishers) {
        items.push_back({publisher.handle(), -1, ZMQ_POLLIN, 0});
    }
    items.push_back({nmosNode.handle(), -1, ZMQ_POLLIN, 0});
    items.push_back({nullptr, stopDescriptor, ZMQ_POLLIN, 0});
    const zmq_pollitem_t& nodeItem = *std::prev(items.end(), 2);
    const zmq_pollitem_t& stopItem = items.back();

    report << "kaikla-sim: ready, playing device " << scenario.deviceId << std::endl;
    ScenarioPlayer player(scenario, options.speed, options.loop, ScenarioPlayer::Clock::now());
    while (!isReady(stopItem)) {
        const bool endReached =
            player.advance(ScenarioPlayer::Clock::now(), [this](const ScenarioEvent& event) {
                publisherOf(*event.kind).publish(event);
            });
        if (endReached) {
            report << "kaikla-sim: the scenario has been played" << std::endl;
            if (options.exitAtEnd) {
                return;
            }
        }
        const auto wait = player.timeToNext(ScenarioPlayer::Clock::now());
        if (zmq_poll(items.data(), static_cast<int>(items.size()),
                     static_cast<long>(wait.count())) <= 0) {
            continue;
        }
        auto item = items.cbegin();
        for (NotificationPublisher& publisher : publishers) {
            if (isReady(*item++)) {
                publisher.answerSubscriptions();
            }
        }
        if (isReady(nodeItem)) {
            nmosNode.answerRequest();
        }
    }
}

} // namespace sim
