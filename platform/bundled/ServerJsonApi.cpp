#include "platform/api/ServerJsonApi.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/ResultCode.hpp"
#include "platform/bundled/WholeMessage.hpp"
#include "platform/records/JsonText.hpp"

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <utility>

namespace {

/// One sentence for a person who reads why a command failed with `code`.
std::string sentenceFor(int code) {
    switch (code) {
    case result_code::kUnknownId:
        return "There is no command with this command_id.";
    case result_code::kConsumerNotConnected:
        return "The service cannot connect to this address: it must be a ZeroMQ endpoint such as "
               "tcp://192.0.2.10:7000, and the number of consumers is limited.";
    case platform_protocol::kErrorUnreachable:
        return "A service that the command needs cannot be reached or did not answer in time.";
    case platform_protocol::kErrorSocket:
        return "A socket that the command needs cannot be created or connected.";
    default:
        return "The command failed with code " + std::to_string(code) + ".";
    }
}

struct Reply {
    std::uint32_t commandId = 0;
    std::string commandName;
    int result = 0;
    Json::Value payload;
    std::string error;
};

/// `reason` comes from the decoder or the JSON library, with or without its full stop.
void refuse(Reply& reply, std::string reason) {
    if (reason.back() != '.') {
        reason += '.';
    }
    reply.result = platform_protocol::kErrorMalformed;
    reply.payload = Json::Value();
    reply.error = std::move(reason);
}

/// REP never waits: a reply whose client is gone or does not read is dropped.
void answer(zmq::socket_t& socket, Reply reply) {
    Json::Value json(Json::objectValue);
    json["command_id"] = reply.commandId;
    json["command_name"] = reply.commandName;
    json["result"] = reply.result;
    if (reply.payload.isNull()) {
        reply.payload = Json::Value(Json::objectValue);
    }
    json["payload"] = std::move(reply.payload);
    if (reply.result < 0) {
        json["error"] = reply.error;
    }
    const std::string text = toCompactJson(json);
    (void)whole_message::uninterrupted(
        [&] { return socket.send(zmq::buffer(text), zmq::send_flags::none); });
}

/// The last resort, in practice when memory lacks: it takes none. Does nothing where no reply is
/// owed.
void answerFailure(zmq::socket_t& socket, std::uint32_t commandId) noexcept {
    std::array<char, 256> text{};
    const int length =
        std::snprintf(text.data(), text.size(),
                      R"({"command_id":%u,"command_name":"","error":"The service is short of )"
                      R"(memory.","payload":{},"result":%d})",
                      unsigned{commandId}, platform_protocol::kErrorSocket);
    while (zmq_send(socket.handle(), text.data(), static_cast<std::size_t>(length), 0) < 0 &&
           zmq_errno() == EINTR) {
    }
}

} // namespace

struct ServerJsonApi::Impl {
    JsonDecoder decoder;
    zmq::message_t frame;

    /// Reads the request that was received. Returns the reason when that fails; what could be read
    /// is then in `request` nevertheless.
    std::string read(std::size_t frames, IpcMsg& request) {
        if (frames != 1) {
            return "The request holds several frames instead of one.";
        }
        Json::Value json;
        if (const std::string reason = decoder.decodeObject(frame.to_string_view(), json);
            !reason.empty()) {
            return "The request is " + reason;
        }
        try {
            request.Deserialize(json);
        } catch (const Json::Exception& error) {
            return std::string("The request cannot be decoded: ") + error.what();
        }
        return {};
    }

    static void carryOut(ServerJsonApi& api, IpcMsg& request, Reply& reply) {
        api.getCommandDescription(request.commandId, reply.commandName);
        bool replyWanted = true;
        try {
            reply.result = api.ipcProcessMsg(request, reply.payload, replyWanted);
        } catch (const Json::LogicError& error) {
            refuse(reply, std::string("The request cannot be decoded: ") + error.what());
            return;
        }
        if (!replyWanted) {
            reply.payload = Json::Value();
        }
        if (reply.result < 0) {
            reply.error = sentenceFor(reply.result);
        }
    }
};

ServerJsonApi::ServerJsonApi() : impl(std::make_unique<Impl>()) {}
ServerJsonApi::~ServerJsonApi() = default;

int ServerJsonApi::ipcPreProcessMsg(zmq::socket_t* socket) {
    IpcMsg request;
    try {
        const std::size_t frames = whole_message::receive(*socket, {&impl->frame});
        if (frames == 0) {
            return 0;
        }
        Reply reply;
        const std::string reason = impl->read(frames, request);
        reply.commandId = request.commandId;
        if (reason.empty()) {
            Impl::carryOut(*this, request, reply);
        } else {
            refuse(reply, reason);
        }
        const int result = reply.result;
        if (result < 0) {
            Logger::log(Logger::LOG_LEVEL_WRN, "command %u (%s) refused with %d: %s",
                        reply.commandId, reply.commandName.c_str(), result, reply.error.c_str());
        } else {
            Logger::log(Logger::LOG_LEVEL_DBG, "command %u (%s) carried out", reply.commandId,
                        reply.commandName.c_str());
        }
        answer(*socket, std::move(reply));
        return result;
    } catch (const std::exception& error) {
        Logger::log(Logger::LOG_LEVEL_ERR, "command interface: %s", error.what());
        // Without a reply the socket would take no other request.
        answerFailure(*socket, request.commandId);
        return platform_protocol::kErrorSocket;
    }
}
