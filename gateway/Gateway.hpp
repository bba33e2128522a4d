#pragma once

#include "gateway/Api.hpp"
#include "gateway/CommandLine.hpp"
#include "gateway/Ingest.hpp"
#include "gateway/MqttPublisher.hpp"
#include "gateway/Server.hpp"
#include "gateway/ServiceLink.hpp"

#include <zmq.hpp>

#include <cstdint>

namespace gateway {

/// The long-lived parts, and what flows from one to the next: messages of the service become
/// changes of the device's state, changes become events, events go to every client.
class Gateway final : private Server::Application {
public:
    /// Throws client::Failure, boost::system::system_error and std::runtime_error for what cannot
    /// be bound or read.
    explicit Gateway(const Options& options);
    virtual ~Gateway() = default;
    Gateway(const Gateway&) = delete;
    Gateway& operator=(const Gateway&) = delete;
    Gateway(Gateway&&) = delete;
    Gateway& operator=(Gateway&&) = delete;

    /// Returns when a signal asks for it and the registration has been taken out. Throws
    /// std::runtime_error when another gateway has its instance's name.
    void run();

private:
    struct StatusAnswer {
        Json::Value payload;
        /// What was known when it was asked for.
        std::uint64_t before = 0;
        Clock::time_point came;
    };

    Answer answer(const Question& question) override;
    Json::Value snapshotJson() const override;
    Json::Value sourceJson() const override;
    void tick() override;
    void everySecond() override;
    void stop() override;

    void takeMessages();
    void takeMessage(const RawMessage& message);
    void takeStatus();
    void publish(const DeviceState::Changes& changes, Clock::time_point taken);
    void publishSource();

    Server server;
    DeviceState device;
    Monitors monitors;
    PtpHistory history;
    /// More messages wait, and are taken in the loop's next turn.
    bool isTakingMore = false;
    /// An answer that they come before.
    std::optional<StatusAnswer> waitingAnswer;
    std::uint64_t inboxDropped = 0;
    MqttFigures mqttFigures;
    Source source;
    const Parts parts;
    Api api;
    zmq::context_t context;
    ServiceLink link;
    std::string failure;
    std::optional<MqttPublisher> mqtt;
    Ingest ingest;
};

} // namespace gateway
