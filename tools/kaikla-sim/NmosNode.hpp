#pragma once

#include "platform/records/JsonText.hpp"

#include <zmq.hpp>

#include <string>
#include <string_view>

namespace sim {

/// The NMOS node, which knows the device's id and nothing else.
class NmosNode {
public:
    /// `rep` is the node's bound socket.
    NmosNode(zmq::socket_t rep, std::string deviceId);

    /// Answers one request, if there is one: with the device for "GET device info", with a negative
    /// result and a sentence for anything else. Never waits.
    void answerRequest();

    zmq::socket_t& socket() { return repSocket; }

private:
    std::string answerTo(std::string_view request);

    zmq::socket_t repSocket;
    std::string device;
    JsonDecoder decoder;
};

} // namespace sim
