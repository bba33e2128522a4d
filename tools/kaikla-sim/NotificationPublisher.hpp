#pragma once

#include "tools/kaikla-sim/PlayedState.hpp"

#include <zmq.hpp>

#include <set>

namespace sim {

/// One of the device's services, as far as its notifications go.
class NotificationPublisher {
public:
    /// Binds the service's endpoint. At least `queueLimit` notifications may wait for a subscriber
    /// before further ones are dropped for it. Throws std::runtime_error with a sentence for the
    /// user when the endpoint cannot be bound.
    NotificationPublisher(zmq::context_t& context, Service service, int queueLimit);

    /// Sends `event`, which must be of this service, and keeps what it says as the state. Never
    /// waits.
    void publish(const ScenarioEvent& event);

    /// Takes all subscriptions that have come in and repeats the state of what they ask for. A
    /// publishing socket cannot address one subscriber, so whoever has subscribed to the same kinds
    /// receives the repetition too; it does them no harm.
    void answerSubscriptions();

    void* handle() { return socket.handle(); }

private:
    std::set<Subject> takeSubscriptions();
    void send(const Kind& kind, const std::string& message);

    Service service;
    zmq::socket_t socket;
    PlayedState state;
};

} // namespace sim
