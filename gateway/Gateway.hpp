#pragma once

#include "gateway/Api.hpp"
#include "gateway/CommandLine.hpp"
#include "gateway/Ingest.hpp"
#include "gateway/Listener.hpp"
#include "gateway/MqttPublisher.hpp"
#include "gateway/ServiceLink.hpp"
#include "gateway/Users.hpp"

#include <zmq.hpp>

#include <boost/asio/signal_set.hpp>

#include <list>
#include <optional>
#include <string>

namespace gateway {

/// The long-lived parts, and what flows from one to the next: messages of the service become
/// changes of the device's state, changes become events, events go to every client.
class Gateway {
public:
    /// Throws client::Failure, boost::system::system_error and std::runtime_error for what cannot
    /// be bound or read.
    explicit Gateway(Options options);

    /// Returns when a signal asks for it and the registration has been taken out. Throws
    /// std::runtime_error when another gateway has its instance's name.
    void run();

private:
    void takeMessages();
    void takeMessage(const RawMessage& message);
    void takeStatus(Json::Value& payload, std::uint64_t before);
    void publish(const DeviceState::Changes& changes, Clock::time_point taken);
    void publishSource();
    void tick();
    void everySecond();
    void heartbeat();
    void waitForSignal();
    void stop();
    void reload();

    const Options options;
    // What a connection uses until its last moment stands before the loop.
    Incidents incidents;
    Connections connections;
    Clients clients;
    EventRing ring;
    DeviceState device;
    Monitors monitors;
    PtpHistory history;
    std::uint64_t inboxDropped = 0;
    MqttFigures mqttFigures;
    Source source;
    const Parts parts;
    Api api;
    HttpSession::Shared shared;
    std::optional<Users> users;
    TlsContext tls;
    boost::asio::io_context loop;
    zmq::context_t context;
    ServiceLink link;
    std::list<Listener> listeners;
    boost::asio::signal_set signals;
    Timer timer;
    unsigned ticks = 0;
    std::string failure;
    bool isStopping = false;
    std::optional<MqttPublisher> mqtt;
    Ingest ingest;
};

} // namespace gateway
