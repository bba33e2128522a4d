#pragma once

#include <json/value.h>
#include <zmq.hpp>

#include <chrono>
#include <optional>
#include <string>

/// A client of the command interface.
class CommandClient {
public:
    explicit CommandClient(zmq::context_t& context);

    /// Sends one frame and returns the reply's text; nothing after `limit`.
    std::optional<std::string> exchange(const std::string& body,
                                        std::chrono::milliseconds limit = std::chrono::seconds(10));

    /// Sends a well-formed request and returns the parsed reply; null when none came.
    Json::Value request(unsigned commandId, const Json::Value& payload = Json::Value());

private:
    zmq::context_t* zmqContext;
    zmq::socket_t socket;
};

/// Parses `text`, which must be JSON; throws std::runtime_error otherwise.
Json::Value parseJson(const std::string& text);
