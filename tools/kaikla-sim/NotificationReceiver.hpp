#pragma once

#include "platform/records/JsonText.hpp"
#include "tools/kaikla-sim/Kinds.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace sim {

/// One notification as it came from a service.
struct Notification {
    const Kind* kind = nullptr;
    Json::Value payload;
};

/// A subscriber to every kind of one service of a real device.
class NotificationReceiver {
public:
    /// Connects to the service, which may be absent. Throws zmq::error_t when that fails.
    NotificationReceiver(zmq::context_t& context, Service service);

    /// The next notification; nothing when there is none. Throws ScenarioMistake for a message that
    /// is no notification of the service, which has then been taken. Never waits.
    std::optional<Notification> receive();

    void* handle() { return socket.handle(); }

private:
    Notification decode(const std::string& topic, std::string_view text);

    Service service;
    zmq::socket_t socket;
    JsonDecoder decoder;
};

} // namespace sim
