#include "tools/kaikla-sim/SimulatedDevice.hpp"

#include "platform/PlatformProtocol.hpp"
#include "tools/kaikla-sim/ScenarioPlayer.hpp"

#include <algorithm>
#include <ostream>
#include <stdexcept>
#include <string>

namespace sim {

namespace {

zmq::socket_t makeSocket(zmq::context_t& context, zmq::socket_type type) {
    zmq::socket_t socket(context, type);
    // At the end of the scenario, the last events still have to leave.
    constexpr int kLingerMs = 200;
    socket.set(zmq::sockopt::linger, kLingerMs);
    return socket;
}

void bindSocket(zmq::socket_t& socket, const char* endpoint, const char* serviceName) {
    try {
        socket.bind(endpoint);
    } catch (const zmq::error_t& error) {
        throw std::runtime_error("cannot play the " + std::string(serviceName) + " service on " +
                                 endpoint + ": " + error.what());
    }
}

zmq::socket_t makeNodeSocket(zmq::context_t& context) {
    zmq::socket_t socket = makeSocket(context, zmq::socket_type::rep);
    bindSocket(socket, platform_protocol::kNmosNodeEndpoint, "NMOS node");
    return socket;
}

/// There is room for the library's default and for two repetitions of the whole state.
zmq::socket_t makePublisherSocket(zmq::context_t& context, const ServiceInfo& service,
                                  std::size_t events) {
    constexpr std::size_t kLibraryDefault = 1000;
    constexpr std::size_t kMost = 1'000'000'000;
    zmq::socket_t socket = makeSocket(context, zmq::socket_type::xpub);
    // Every subscription is passed up, also one that another subscriber has made before.
    socket.set(zmq::sockopt::xpub_verbose, true);
    socket.set(zmq::sockopt::sndhwm,
               static_cast<int>(std::min(kLibraryDefault + 2 * events, kMost)));
    bindSocket(socket, service.endpoint, service.name);
    return socket;
}

} // namespace

SimulatedDevice::SimulatedDevice(zmq::context_t& context, const Scenario& scenarioToPlay)
    : scenario(scenarioToPlay), nmosNode(makeNodeSocket(context), scenarioToPlay.deviceId) {
    for (const ServiceInfo& info : allServices()) {
        publishers.emplace_back(info.service,
                                makePublisherSocket(context, info, scenario.events.size()));
    }
}

void SimulatedDevice::run(const PlayOptions& options, const StopSignals& stop,
                          std::ostream& report) {
    report << "kaikla-sim: ready, playing device " << scenario.deviceId << std::endl;
    ScenarioPlayer player(scenario, options.speed, options.loop, ScenarioPlayer::Clock::now());
    while (!stop.arrived()) {
        const bool endReached = player.advance(ScenarioPlayer::Clock::now(),
                                               [this](const ScenarioEvent& event) { play(event); });
        if (endReached) {
            report << "kaikla-sim: the scenario has been played" << std::endl;
            if (options.exitAtEnd) {
                return;
            }
        }
        waitAndAnswer(player.timeToNext(ScenarioPlayer::Clock::now()), stop);
    }
}

void SimulatedDevice::play(const ScenarioEvent& event) {
    publishers[static_cast<std::size_t>(event.kind->service)].publish(event);
}

void SimulatedDevice::waitAndAnswer(std::chrono::milliseconds limit, const StopSignals& stop) {
    std::vector<zmq_pollitem_t> items = {{nullptr, stop.descriptor(), ZMQ_POLLIN, 0},
                                         {nmosNode.socket().handle(), -1, ZMQ_POLLIN, 0}};
    for (NotificationPublisher& publisher : publishers) {
        items.push_back({publisher.socket().handle(), -1, ZMQ_POLLIN, 0});
    }
    if (zmq_poll(items.data(), static_cast<int>(items.size()), static_cast<long>(limit.count())) <=
        0) {
        return;
    }
    if (items[1].revents != 0) {
        nmosNode.answerRequest();
    }
    for (std::size_t i = 0; i < publishers.size(); ++i) {
        if (items[i + 2].revents != 0) {
            publishers[i].answerSubscriptions(stop);
        }
    }
}

} // namespace sim
