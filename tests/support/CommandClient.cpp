#include "tests/support/CommandClient.hpp"

#include "platform/PlatformProtocol.hpp"

#include <json/reader.h>
#include <json/writer.h>

#include <sstream>
#include <stdexcept>

Json::Value parseJson(const std::string& text) {
    Json::Value value;
    std::string errors;
    std::istringstream stream(text);
    if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &errors)) {
        throw std::runtime_error(errors);
    }
    return value;
}

CommandClient::CommandClient(zmq::context_t& context)
    : zmqContext(&context), socket(context, zmq::socket_type::req) {
    socket.set(zmq::sockopt::linger, 0);
    // A service that is just starting is found soon.
    socket.set(zmq::sockopt::reconnect_ivl, 2);
    socket.connect(platform_protocol::kCommandEndpoint);
}

std::optional<std::string> CommandClient::exchange(const std::string& body,
                                                   std::chrono::milliseconds limit) {
    socket.set(zmq::sockopt::rcvtimeo, static_cast<int>(limit.count()));
    socket.send(zmq::buffer(body), zmq::send_flags::none);
    zmq::message_t reply;
    if (!socket.recv(reply)) {
        // A REQ socket that still waits cannot send again.
        *this = CommandClient(*zmqContext);
        return std::nullopt;
    }
    return reply.to_string();
}

Json::Value CommandClient::request(unsigned commandId, const Json::Value& payload) {
    Json::Value message;
    message["command_id"] = commandId;
    message["payload"] = payload;
    const auto reply = exchange(Json::writeString(Json::StreamWriterBuilder(), message));
    return reply ? parseJson(*reply) : Json::Value();
}
