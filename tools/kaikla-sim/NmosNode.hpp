#pragma once

#include "platform/records/JsonText.hpp"

#include <zmq.hpp>

#include <string>
#include <string_view>

namespace sim {

/// The NMOS node, which knows the device's id and nothing else.
class NmosNode {
public:
    /// Binds the node's endpoint; throws std::runtime_error with a sentence for the user when that
    /// fails.
    NmosNode(zmq::context_t& context, std::string deviceId);

    /// Answers one request, if there is one: with the device for "GET device info", with a negative
    /// result and a sentence for anything else. Never waits.
    void answerRequest();

    void* handle() { return socket.handle(); }

private:
    std::string answerTo(std::string_view request);

    std::string device;
    zmq::socket_t socket;
    JsonDecoder decoder;
};

} // namespace sim
