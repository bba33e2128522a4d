#include "tools/kaiklactl/ServiceConnection.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/records/IpcMsg.hpp"
#include "platform/records/JsonMember.hpp"
#include "platform/records/JsonText.hpp"
#include "tools/kaiklactl/Failure.hpp"
#include "tools/kaiklactl/MessageLine.hpp"

#include <chrono>
#include <utility>

namespace kaiklactl {
namespace {

/// How long a request that has just been sent may take to leave when the program ends.
constexpr std::chrono::milliseconds kLinger{100};
/// A service whose machine has lost power closes no connection. Its library answers these even
/// while the service itself is busy.
constexpr std::chrono::milliseconds kHeartbeat{2000};

} // namespace

ServiceConnection::ServiceConnection(zmq::context_t& context, const std::string& endpoint)
    : socket(context, zmq::socket_type::dealer) {
    socket.set(zmq::sockopt::linger, static_cast<int>(kLinger.count()));
    socket.set(zmq::sockopt::heartbeat_ivl, static_cast<int>(kHeartbeat.count()));
    monitor.emplace(context, socket);
    try {
        socket.connect(endpoint);
    } catch (const zmq::error_t& error) {
        throw Failure(ExitStatus::usage, "cannot connect to " + endpoint + ": " + error.what() +
                                             "; an endpoint looks like " +
                                             platform_protocol::kCommandEndpoint + ".");
    }
}

ServiceConnection::State ServiceConnection::update() {
    for (;;) {
        switch (monitor->take()) {
        case ConnectionMonitor::Event::none:
            return state;
        case ConnectionMonitor::Event::refused:
            state = State::connecting;
            break;
        case ConnectionMonitor::Event::accepted:
            state = State::accepted;
            break;
        case ConnectionMonitor::Event::connected:
            state = State::connected;
            break;
        case ConnectionMonitor::Event::disconnected:
            // Before it stood it was no connection to the service: something else listens there.
            if (state == State::connected) {
                state = State::lost;
                return state;
            }
            break;
        }
    }
}

void ServiceConnection::send(WebNotifierCommand::webnotifier_command_id_t command,
                             const Json::Value& payload) {
    IpcMsg request;
    request.commandId = command;
    WebNotifierCommand::getCommandNameStr(command, request.commandName);
    request.payload = payload;
    Json::Value json;
    request.Serialize(json);
    // The empty frame is what a REP socket expects in front of a request.
    (void)socket.send(zmq::message_t(), zmq::send_flags::sndmore | zmq::send_flags::dontwait);
    (void)socket.send(zmq::buffer(toCompactJson(json)), zmq::send_flags::dontwait);
}

std::optional<Reply> ServiceConnection::receive() {
    zmq::message_t frame;
    if (!socket.recv(frame, zmq::recv_flags::dontwait)) {
        return std::nullopt;
    }
    while (frame.more()) {
        (void)socket.recv(frame);
    }
    try {
        Json::Value json = readObject(frame.to_string_view());
        Reply reply;
        reply.command = json_member::unsigned32(json, "command_id");
        reply.result = json_member::signed32(json, "result");
        reply.error = json_member::text(json, "error");
        reply.payload = std::move(json["payload"]);
        return reply;
    } catch (const Json::Exception& error) {
        throw Failure(ExitStatus::noAnswer,
                      std::string("the answer cannot be read, it is not kaikla's: ") +
                          error.what() + ".");
    }
}

Json::Value consumerPayload(const std::string& address) {
    Json::Value payload;
    payload["address"] = address;
    return payload;
}

std::vector<std::string> registeredConsumers(const Json::Value& payload) {
    std::vector<std::string> addresses;
    if (const Json::Value* list = json_member::find(payload, "remote"); list != nullptr) {
        for (const Json::Value& address : *list) {
            addresses.push_back(address.asString());
        }
    }
    return addresses;
}

} // namespace kaiklactl
