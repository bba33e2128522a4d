#pragma once

#include "tools/kaikla-sim/PlayedState.hpp"
#include "tools/process/StopSignals.hpp"

#include <zmq.hpp>

#include <set>

namespace sim {

/// One of the device's services, as far as its notifications go.
class NotificationPublisher {
public:
    /// `xpub` is the service's bound socket, which passes every subscription up.
    NotificationPublisher(Service service, zmq::socket_t xpub);

    /// Sends `event`, which must be of this service and outlive the publisher, and keeps what it
    /// says as the state. Never waits.
    void publish(const ScenarioEvent& event);

    /// Takes all subscriptions that have come in and repeats the state of what they ask for, unless
    /// a signal arrives. The socket cannot address one subscriber, so every subscriber to the same
    /// kinds receives the repetition; it does them no harm.
    void answerSubscriptions(const StopSignals& stop);

    zmq::socket_t& socket() { return xpubSocket; }

private:
    std::set<Subject> takeSubscriptions();
    void send(const ScenarioEvent& event);

    Service service;
    zmq::socket_t xpubSocket;
    PlayedState state;
};

} // namespace sim
