#include "tools/kaikla-sim/NotificationPublisher.hpp"

#include "tools/kaikla-sim/BoundSocket.hpp"

#include <string_view>

namespace sim {

namespace {

/// What the first byte of a subscriber's message says; the topic follows it.
constexpr char kSubscribe = 1;

} // namespace

NotificationPublisher::NotificationPublisher(zmq::context_t& context, Service serviceToPlay,
                                             int queueLimit)
    : service(serviceToPlay), socket(context, zmq::socket_type::xpub) {
    // Every subscription is passed up, also to a kind that somebody else has subscribed to already.
    socket.set(zmq::sockopt::xpub_verbose, true);
    socket.set(zmq::sockopt::sndhwm, queueLimit);
    bindSocket(socket, infoOf(service).endpoint, infoOf(service).name);
}

void NotificationPublisher::publish(const ScenarioEvent& event) {
    state.apply(event);
    send(*event.kind, event.message);
}

void NotificationPublisher::answerSubscriptions() {
    const std::set<Subject> asked = takeSubscriptions();
    for (const PlayedState::Entry& entry : state.entries()) {
        if (asked.contains(entry.kind->subject)) {
            send(*entry.kind, entry.message);
        }
    }
}

std::set<Subject> NotificationPublisher::takeSubscriptions() {
    std::set<Subject> asked;
    zmq::message_t frame;
    while (socket.recv(frame, zmq::recv_flags::dontwait)) {
        const std::string_view text = frame.to_string_view();
        // Subscribers may also send messages of their own, of any content; they mean nothing here.
        if (!text.empty() && text.front() == kSubscribe) {
            for (const Kind& kind : allKinds()) {
                if (kind.service == service && kind.topic().starts_with(text.substr(1))) {
                    asked.insert(kind.subject);
                }
            }
        }
    }
    return asked;
}

void NotificationPublisher::send(const Kind& kind, const std::string& message) {
    (void)socket.send(zmq::buffer(kind.topic()),
                      zmq::send_flags::sndmore | zmq::send_flags::dontwait);
    (void)socket.send(zmq::buffer(message), zmq::send_flags::dontwait);
}

} // namespace sim
