#include "tools/kaikla-sim/NotificationReceiver.hpp"

#include "platform/records/IpcMsg.hpp"
#include "tools/kaikla-sim/ScenarioLine.hpp"

#include <json/writer.h>

#include <utility>

namespace sim {

NotificationReceiver::NotificationReceiver(zmq::context_t& context, Service serviceToHear)
    : service(serviceToHear), socket(context, zmq::socket_type::sub) {
    socket.connect(infoOf(service).endpoint);
    // Each kind for itself: services answer a subscription to a kind with its state.
    for (const Kind& kind : allKinds()) {
        if (kind.service == service) {
            socket.set(zmq::sockopt::subscribe, kind.topic());
        }
    }
}

std::optional<Notification> NotificationReceiver::receive() {
    zmq::message_t topic;
    if (!socket.recv(topic, zmq::recv_flags::dontwait)) {
        return std::nullopt;
    }
    zmq::message_t message;
    zmq::message_t surplus;
    int frames = 1;
    for (; socket.get(zmq::sockopt::rcvmore); ++frames) {
        (void)socket.recv(frames == 1 ? message : surplus);
    }
    if (frames != 2) {
        throw ScenarioMistake("a message of " + std::to_string(frames) + " frames");
    }
    return decode(topic.to_string(), message.to_string_view());
}

Notification NotificationReceiver::decode(const std::string& topic, std::string_view text) {
    Json::Value json;
    if (const std::string reason = decoder.decodeObject(text, json); !reason.empty()) {
        throw ScenarioMistake(reason);
    }
    IpcMsg message;
    try {
        message.Deserialize(json);
    } catch (const Json::Exception& error) {
        throw ScenarioMistake(error.what());
    }
    Notification notification;
    notification.kind = findKind(service, message.commandId);
    if (notification.kind == nullptr) {
        throw ScenarioMistake("there is no kind " + std::to_string(message.commandId));
    }
    if (notification.kind->topic() != topic) {
        throw ScenarioMistake("kind " + notification.kind->topic() + " under the topic " +
                              Json::valueToQuotedString(topic.c_str()));
    }
    notification.payload = std::move(message.payload);
    return notification;
}

} // namespace sim
