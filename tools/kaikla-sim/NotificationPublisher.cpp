#include "tools/kaikla-sim/NotificationPublisher.hpp"

#include <string_view>
#include <utility>

namespace sim {

namespace {

/// What the first byte of a subscriber's message says; the topic follows it.
constexpr char kSubscribe = 1;

/// A look for signals costs as much as sending an event.
constexpr std::size_t kEventsBetweenLooks = 1000;

} // namespace

NotificationPublisher::NotificationPublisher(Service serviceToPlay, zmq::socket_t xpub)
    : service(serviceToPlay), xpubSocket(std::move(xpub)) {}

void NotificationPublisher::publish(const ScenarioEvent& event) {
    state.apply(event);
    send(event);
}

void NotificationPublisher::answerSubscriptions(const StopSignals& stop) {
    const std::set<Subject> asked = takeSubscriptions();
    std::size_t looked = 0;
    for (const ScenarioEvent* const event : state.events()) {
        if (++looked % kEventsBetweenLooks == 0 && stop.arrived()) {
            return;
        }
        if (asked.contains(event->kind->subject)) {
            send(*event);
        }
    }
}

std::set<Subject> NotificationPublisher::takeSubscriptions() {
    std::set<Subject> asked;
    zmq::message_t frame;
    while (xpubSocket.recv(frame, zmq::recv_flags::dontwait)) {
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

void NotificationPublisher::send(const ScenarioEvent& event) {
    (void)xpubSocket.send(zmq::buffer(event.kind->topic()),
                          zmq::send_flags::sndmore | zmq::send_flags::dontwait);
    (void)xpubSocket.send(zmq::buffer(event.message), zmq::send_flags::dontwait);
}

} // namespace sim
