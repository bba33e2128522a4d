#pragma once

#include <json/value.h>
#include <zmq.hpp>

#include <chrono>
#include <optional>
#include <string>

/// A remote consumer: a PULL socket on a free port of the loopback interface.
class Consumer {
public:
    explicit Consumer(zmq::context_t& context);

    /// The address to register.
    const std::string& address() const { return endpoint; }

    /// The next message's bytes; nothing when none came within `limit`.
    std::optional<std::string>
    receiveText(std::chrono::milliseconds limit = std::chrono::seconds(10));
    /// The next message, parsed; null when none came.
    Json::Value receive(std::chrono::milliseconds limit = std::chrono::seconds(10));
    /// True when no message comes for `span`: for what must not be sent.
    bool staysSilent(std::chrono::milliseconds span = std::chrono::milliseconds(100));

private:
    zmq::socket_t socket;
    std::string endpoint;
};
