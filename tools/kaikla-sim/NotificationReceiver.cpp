#include "tools/kaikla-sim/NotificationReceiver.hpp"

#include "platform/api/Logger.hpp"
#include "platform/records/IpcMsg.hpp"
#include "tools/kaikla-sim/ScenarioLine.hpp"

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
    try {
        if (frames != 2) {
            throw ScenarioMistake("it does not have two frames");
        }
        return decode(topic.to_string_view(), message.to_string_view());
    } catch (const std::exception& error) {
        logSkipped(topic.to_string_view(), error.what());
        return std::nullopt;
    }
}

Notification NotificationReceiver::decode(std::string_view topic, std::string_view text) {
    Json::Value json;
    if (const std::string reason = decoder.decodeObject(text, json); !reason.empty()) {
        throw ScenarioMistake(reason);
    }
    IpcMsg message;
    message.Deserialize(json);
    Notification notification;
    notification.kind = findKind(service, message.commandId);
    if (notification.kind == nullptr) {
        throw ScenarioMistake("there is no kind " + std::to_string(message.commandId));
    }
    if (notification.kind->topic() != topic) {
        throw ScenarioMistake("its command_id is " + std::to_string(message.commandId));
    }
    notification.payload = std::move(message.payload);
    return notification;
}

void NotificationReceiver::logSkipped(std::string_view topic, const std::string& reason) const {
    // A topic of any length and content may come in; a line needs no more than its beginning.
    constexpr std::size_t kShown = 32;
    Logger::log(Logger::LOG_LEVEL_ERR, "%s: notification %s skipped: %s", infoOf(service).name,
                std::string(topic.substr(0, kShown)).c_str(), reason.c_str());
}

} // namespace sim
