#pragma once

#include "handler/WebNotifierCommand.hpp"
#include "tools/kaiklactl/ConnectionMonitor.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <optional>
#include <string>
#include <vector>

namespace kaiklactl {

/// The service's answer to one command.
struct Reply {
    unsigned command = 0;
    /// 0, or the negative code of a refusal.
    int result = 0;
    Json::Value payload;
    /// With a refusal: why, in a sentence.
    std::string error;
};

/// One connection to the service's command interface. Nothing here waits: a caller polls for the
/// two items and then takes what has come. Once it is lost it stays so; a new object tries again.
class ServiceConnection {
public:
    enum class State { connecting, accepted, connected, lost };

    /// Throws Failure for an endpoint that cannot be connected to.
    ServiceConnection(zmq::context_t& context, const std::string& endpoint);

    zmq_pollitem_t replyItem() { return {socket.handle(), -1, ZMQ_POLLIN, 0}; }
    zmq_pollitem_t stateItem() { return monitor->pollItem(); }

    /// Takes in what has happened to the connection since the last call.
    State update();

    /// For a connection that stands. Answers come in the order of the requests.
    void send(WebNotifierCommand::webnotifier_command_id_t command,
              const Json::Value& payload = Json::Value());

    /// The next answer, nothing when none has come. Throws Failure for one that cannot be read.
    std::optional<Reply> receive();

private:
    zmq::socket_t socket;
    std::optional<ConnectionMonitor> monitor;
    State state = State::connecting;
};

/// The payload that names a consumer.
Json::Value consumerPayload(const std::string& address);

/// The addresses in the answer to "GET Server list". Raises Json::Exception.
std::vector<std::string> registeredConsumers(const Json::Value& payload);

} // namespace kaiklactl
