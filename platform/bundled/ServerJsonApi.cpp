#include "platform/api/ServerJsonApi.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/bundled/ReplyError.hpp"
#include "platform/bundled/WholeMessage.hpp"
#include "platform/records/JsonText.hpp"

#include <exception>
#include <new>
#include <string_view>
#include <utility>

namespace {

struct Reply {
    std::uint32_t commandId = 0;
    std::string commandName;
    int result = 0;
    Json::Value payload;
    std::string error;
};

/// `reason` comes from the decoder or the JSON library, with or without its full stop.
Reply refusal(Reply reply, std::string reason) {
    if (reason.back() != '.') {
        reason += '.';
    }
    reply.result = platform_protocol::kErrorMalformed;
    reply.payload = Json::Value();
    reply.error = std::move(reason);
    return reply;
}

std::string encode(Reply reply) {
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
    return toCompactJson(json);
}

/// Ready beforehand, as there is nothing to build it from when it is needed. The request may not
/// have been decoded, so that it names no command.
constexpr std::string_view kShortOfMemory =
    R"({"command_id":0,"command_name":"","error":"The service is short of memory.",)"
    R"("payload":{},"result":-103})";
static_assert(platform_protocol::kErrorSocket == -103);

/// REP never waits: a reply whose client is gone or does not read is dropped.
void send(zmq::socket_t& socket, std::string_view text) {
    (void)whole_message::uninterrupted(
        [&] { return socket.send(zmq::buffer(text), zmq::send_flags::none); });
}

} // namespace

struct ServerJsonApi::Impl {
    JsonDecoder decoder;
    zmq::message_t frame;
};

ServerJsonApi::ServerJsonApi() : impl(std::make_unique<Impl>()) {}
ServerJsonApi::~ServerJsonApi() = default;

int ServerJsonApi::ipcPreProcessMsg(zmq::socket_t* socket) {
    const auto answer = [this](bool oneFrame) -> Reply {
        Reply reply;
        if (!oneFrame) {
            return refusal(reply, "The request holds several frames instead of one.");
        }
        Json::Value json;
        const std::string reason = impl->decoder.decodeObject(impl->frame.to_string_view(), json);
        if (!reason.empty()) {
            return refusal(reply, "The request is " + reason);
        }
        try {
            IpcMsg request;
            request.Deserialize(json);
            reply.commandId = request.commandId;
            getCommandDescription(request.commandId, reply.commandName);
            bool replyWanted = true;
            reply.result = ipcProcessMsg(request, reply.payload, replyWanted);
            if (!replyWanted) {
                reply.payload = Json::Value();
            }
        } catch (const Json::Exception& error) {
            return refusal(reply, std::string("The request cannot be decoded: ") + error.what());
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& error) {
            // The service's own failure; the client still has its reply.
            Logger::log(Logger::LOG_LEVEL_ERR, "command interface: %s", error.what());
            reply.result = platform_protocol::kErrorSocket;
            reply.payload = Json::Value();
        }
        if (reply.result < 0) {
            reply.error = replyErrorSentence(reply.result);
        }
        return reply;
    };

    const auto logFailure = [](const std::exception& error) {
        Logger::log(Logger::LOG_LEVEL_ERR, "command interface: %s", error.what());
    };

    std::size_t frames = 0;
    try {
        frames = whole_message::receive(*socket, {&impl->frame});
    } catch (const std::exception& error) {
        logFailure(error);
        return platform_protocol::kErrorSocket;
    }
    if (frames == 0) {
        return 0;
    }
    try {
        Reply reply = answer(frames == 1);
        const int result = reply.result;
        if (result < 0) {
            Logger::log(Logger::LOG_LEVEL_WRN, "command %u (%s) refused with %d: %s",
                        reply.commandId, reply.commandName.c_str(), result, reply.error.c_str());
        } else {
            Logger::log(Logger::LOG_LEVEL_DBG, "command %u (%s) carried out", reply.commandId,
                        reply.commandName.c_str());
        }
        const std::string text = encode(std::move(reply));
        send(*socket, text);
        return result;
    } catch (const std::exception& error) {
        logFailure(error);
    }
    // What the request took is free again by now. Without a reply the socket would wait for it
    // forever and take no other request.
    try {
        send(*socket, kShortOfMemory);
    } catch (const std::exception& error) {
        logFailure(error);
    }
    return platform_protocol::kErrorSocket;
}
