#pragma once

#include "gateway/CommandLine.hpp"
#include "gateway/MqttClient.hpp"
#include "gateway/Server.hpp"
#include "gateway/Source.hpp"
#include "gateway/fleet/FleetApi.hpp"
#include "gateway/fleet/FleetState.hpp"
#include "gateway/fleet/Retrieval.hpp"

#include <string>

namespace gateway {

/// The view of many devices: what they publish at a broker becomes changes of the fleet's state,
/// changes become events, events go to every client. It has nothing that is not at the broker, so
/// that it can be started anywhere and any number of times.
class Fleet final : private Server::Application {
public:
    /// Throws boost::system::system_error and std::runtime_error for what cannot be bound or read.
    explicit Fleet(const Options& options);
    virtual ~Fleet() = default;
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;
    Fleet(Fleet&&) = delete;
    Fleet& operator=(Fleet&&) = delete;

    /// Returns when a signal asks for it.
    void run();

private:
    Answer answer(const Question& question) override;
    Json::Value snapshotJson() const override;
    Json::Value sourceJson() const override;
    void tick() override;
    void everySecond() override;
    void stop() override;

    MqttClient::Handlers brokerHandlers();
    Retrieval::Handlers retrievalHandlers();
    void takeMessage(const MqttMessage& message);
    void publish(Change& change);
    void publishSource();

    Server server;
    FleetState state;
    Source source;
    FleetApi api;
    Retrieval retrieval;
    /// Those that were known before the broker came back may be there no more.
    bool hasOldDevices = false;
    Clock::time_point connectedSince;
    MqttClient broker;
};

} // namespace gateway
