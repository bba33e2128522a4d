#include "tools/client/ServiceConnection.hpp"

#include "platform/records/IpcMsg.hpp"
#include "platform/records/JsonMember.hpp"
#include "platform/records/JsonText.hpp"
#include "tools/client/Failure.hpp"
#include "tools/client/Waiting.hpp"

#include <json/reader.h>

#include <array>
#include <cstdio>
#include <memory>
#include <utility>

namespace client {
namespace {

/// How long a request that has just been sent may take to leave when the program ends.
constexpr std::chrono::milliseconds kLinger{100};
/// A machine that loses power closes no connection. The service's library answers heartbeats even
/// while the service itself is busy.
constexpr std::chrono::milliseconds kHeartbeat{2000};

std::string inSeconds(std::chrono::milliseconds span) {
    constexpr std::size_t kLongestNumber = 32;
    std::array<char, kLongestNumber> text{};
    std::snprintf(text.data(), text.size(), "%g s", std::chrono::duration<double>(span).count());
    return text.data();
}

} // namespace

ServiceConnection::ServiceConnection(zmq::context_t& context, const std::string& endpoint)
    : socket(context, zmq::socket_type::dealer) {
    socket.set(zmq::sockopt::linger, static_cast<int>(kLinger.count()));
    socket.set(zmq::sockopt::heartbeat_ivl, static_cast<int>(kHeartbeat.count()));
    monitor.emplace(context, socket);
    try {
        socket.connect(endpoint);
    } catch (const zmq::error_t& error) {
        throw BadEndpoint("cannot connect to " + endpoint + ": " + error.what() +
                          "; an endpoint looks like " + platform_protocol::kCommandEndpoint + ".");
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
            // Something that is not the service hangs up before the handshake is complete.
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
    // A REP socket expects an empty frame in front of a request.
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
        throw NoAnswer(std::string("the answer cannot be read, it is not kaikla's: ") +
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

Json::Value readObject(std::string_view text) {
    static const std::unique_ptr<Json::CharReader> reader(
        Json::CharReaderBuilder().newCharReader());
    Json::Value object;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &object, &errors)) {
        throw Json::RuntimeError("not JSON");
    }
    if (!object.isObject()) {
        throw Json::RuntimeError("not a JSON object");
    }
    return object;
}

std::string noAnswerSentence(const Service& service, ServiceConnection::State state) {
    const std::string start =
        "no answer from " + service.endpoint + " within " + inSeconds(service.timeout) + ": ";
    switch (state) {
    case ServiceConnection::State::connecting:
        return start + "kaikla does not run there, or cannot be reached. Start it (systemctl start "
                       "kaikla), or name its endpoint with --server.";
    case ServiceConnection::State::accepted:
        return start + "something listens there, but it is stopped or not kaikla.";
    case ServiceConnection::State::connected:
        return start + "it waits, most likely for a consumer that does not read. The last warning "
                       "in its log names the consumer; \"kaiklactl drain ADDRESS\" frees the "
                       "service from it.";
    case ServiceConnection::State::lost:
        break;
    }
    return "no answer from " + service.endpoint + ": it closed the connection.";
}

std::vector<Json::Value> exchange(zmq::context_t& context, const Service& service,
                                  const std::vector<Request>& requests, StopSignals* stop) {
    const auto deadline = Clock::now() + service.timeout;
    ServiceConnection connection(context, service.endpoint);
    std::array<zmq_pollitem_t, 3> items = {connection.stateItem(), connection.replyItem(),
                                           stop != nullptr ? pollItem(*stop) : zmq_pollitem_t{}};
    const std::size_t itemCount = stop != nullptr ? items.size() : items.size() - 1;
    std::vector<Json::Value> payloads;
    for (bool sent = false;;) {
        waitFor({items.data(), itemCount}, deadline);
        if (stop != nullptr) {
            throwIfStopped(*stop);
        }
        while (std::optional<Reply> reply = connection.receive()) {
            if (reply->result < 0) {
                throw Refused(reply->error);
            }
            payloads.push_back(std::move(reply->payload));
            if (payloads.size() == requests.size()) {
                return payloads;
            }
        }
        const ServiceConnection::State state = connection.update();
        if (state == ServiceConnection::State::connected && !sent) {
            for (const Request& request : requests) {
                connection.send(request.command, request.payload);
            }
            sent = true;
        }
        if (state == ServiceConnection::State::lost || Clock::now() >= deadline) {
            throw NoAnswer(noAnswerSentence(service, state), sent);
        }
    }
}

Json::Value request(zmq::context_t& context, const Service& service,
                    WebNotifierCommand::webnotifier_command_id_t command,
                    const Json::Value& payload, StopSignals* stop) {
    return exchange(context, service, {{command, payload}}, stop).front();
}

std::vector<std::string> removeConsumer(zmq::context_t& context, const Service& service,
                                        const std::string& address, StopSignals* stop) {
    return registeredConsumers(
        exchange(context, service,
                 {{WebNotifierCommand::get_server_list, Json::Value()},
                  {WebNotifierCommand::remove_remote_info_consumer, consumerPayload(address)}},
                 stop)
            .front());
}

} // namespace client
