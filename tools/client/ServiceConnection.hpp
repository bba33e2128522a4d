#pragma once

#include "handler/WebNotifierCommand.hpp"
#include "platform/PlatformProtocol.hpp"
#include "tools/client/ConnectionMonitor.hpp"
#include "tools/process/StopSignals.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace client {

/// The service's answer to one command.
struct Reply {
    unsigned command = 0;
    /// 0, or the negative code of a refusal.
    int result = 0;
    Json::Value payload;
    /// With a refusal: why, in a sentence.
    std::string error;
};

/// One connection to the service's command interface. Nothing here waits: poll for the two items,
/// then take what has come. A lost connection stays lost; a new object tries again.
class ServiceConnection {
public:
    enum class State {
        /// Nobody has accepted the connection yet; the library goes on trying.
        connecting,
        /// A process accepted it and has not spoken ZMTP yet.
        accepted,
        connected,
        /// It was connected, and the peer has closed it or has gone.
        lost,
    };

    /// Throws BadEndpoint for an endpoint that cannot be connected to.
    ServiceConnection(zmq::context_t& context, const std::string& endpoint);

    zmq_pollitem_t replyItem() { return {socket.handle(), -1, ZMQ_POLLIN, 0}; }
    zmq_pollitem_t stateItem() { return monitor->pollItem(); }

    /// Takes in what has happened to the connection since the last call.
    State update();

    /// Sends a request; only while connected. Replies come in the order of the requests.
    void send(WebNotifierCommand::webnotifier_command_id_t command,
              const Json::Value& payload = Json::Value());

    /// The next reply, nothing when none has come. Throws NoAnswer for one that cannot be read.
    std::optional<Reply> receive();

private:
    zmq::socket_t socket;
    std::optional<ConnectionMonitor> monitor;
    State state = State::connecting;
};

/// The payload that names a consumer.
Json::Value consumerPayload(const std::string& address);

/// The addresses in the reply to "GET Server list". Raises Json::Exception.
std::vector<std::string> registeredConsumers(const Json::Value& payload);

/// Reads one JSON object, such as a published message. Its size has no limit here: the service
/// publishes documents of any size. Raises Json::Exception with a reason of one line.
Json::Value readObject(std::string_view text);

/// Where the service is and how long it may take to answer.
struct Service {
    std::string endpoint = platform_protocol::kCommandEndpoint;
    std::chrono::milliseconds timeout{};
};

/// Why no reply came within the service's timeout, in a sentence that says what to do.
std::string noAnswerSentence(const Service& service, ServiceConnection::State state);

/// One command and what it is about.
struct Request {
    WebNotifierCommand::webnotifier_command_id_t command;
    Json::Value payload;
};

/// Connects, sends the requests, one right after the other, and waits for their replies, all within
/// the service's timeout. Returns the payloads. Throws BadEndpoint, NoAnswer or Refused; with
/// `stop`, a signal throws Interrupted.
std::vector<Json::Value> exchange(zmq::context_t& context, const Service& service,
                                  const std::vector<Request>& requests,
                                  StopSignals* stop = nullptr);

/// The same for a single request.
Json::Value request(zmq::context_t& context, const Service& service,
                    WebNotifierCommand::webnotifier_command_id_t command,
                    const Json::Value& payload = Json::Value(), StopSignals* stop = nullptr);

/// Removes a consumer. Returns the consumers that were registered before.
std::vector<std::string> removeConsumer(zmq::context_t& context, const Service& service,
                                        const std::string& address, StopSignals* stop = nullptr);

} // namespace client
