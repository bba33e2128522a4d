#include "platform/api/ClientJsonApi.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/records/IpcMsg.hpp"
#include "platform/records/JsonMember.hpp"
#include "platform/records/JsonText.hpp"
#include "platform/zmq/ConnectionAttempt.hpp"

#include <optional>
#include <utility>

namespace {

/// Longer than a connection to a service of the same device takes, refused or not.
constexpr std::chrono::milliseconds kConnectLimit{100};

/// A request socket that takes a request only for a connection that stands, so that a request to
/// an absent service fails instead of waiting in a queue.
zmq::socket_t makeRequestSocket(zmq::context_t& context) {
    zmq::socket_t socket(context, zmq::socket_type::req);
    socket.set(zmq::sockopt::immediate, true);
    return socket;
}

} // namespace

struct ClientJsonApi::State {
    State(const char* endpointToUse, int timeoutMs)
        : endpoint(endpointToUse), answerTimeoutMs(timeoutMs) {}

    const char* endpoint;
    int answerTimeoutMs;
    zmq::context_t* context = nullptr;
    std::optional<zmq::socket_t> socket;
    JsonDecoder decoder;

    bool isConnected() const {
        return socket && (socket->get(zmq::sockopt::events) & ZMQ_POLLOUT) != 0;
    }

    /// Tries at once instead of waiting for the library's next attempt: a service that has just
    /// come up is found, and one that is absent refuses within microseconds.
    bool connectAfresh() {
        zmq::socket_t fresh = makeRequestSocket(*context);
        const bool connected = connectAndWait(*context, fresh, endpoint, kConnectLimit);
        socket = std::move(fresh);
        return connected;
    }

    bool waitForAnswer() {
        zmq_pollitem_t item{socket->handle(), -1, ZMQ_POLLIN, 0};
        // An interruption ends the wait too: that is how a stop gets through a pending request.
        return zmq_poll(&item, 1, answerTimeoutMs) > 0;
    }

    int fail(int code, const std::string& reason) const {
        Logger::log(Logger::LOG_LEVEL_ERR, "request to %s: %s", endpoint, reason.c_str());
        return code;
    }

    int exchange(const IpcMsg& message, Json::Value& reply);
    int readAnswer(Json::Value& reply);
};

ClientJsonApi::ClientJsonApi(const char* endpoint, int answerTimeoutMs)
    : state(std::make_unique<State>(endpoint, answerTimeoutMs)) {}
ClientJsonApi::~ClientJsonApi() = default;

int ClientJsonApi::init(zmq::context_t& context) {
    state->context = &context;
    try {
        state->socket = makeRequestSocket(context);
        state->socket->connect(state->endpoint);
    } catch (const zmq::error_t& error) {
        return state->fail(platform_protocol::kErrorSocket, error.what());
    }
    return 0;
}

int ClientJsonApi::request(unsigned commandId, const char* commandName, Json::Value& reply) {
    if (state->context == nullptr) {
        return state->fail(platform_protocol::kErrorUnreachable, "not initialised");
    }
    IpcMsg message;
    message.commandId = commandId;
    message.commandName = commandName;
    try {
        return state->exchange(message, reply);
    } catch (const zmq::error_t& error) {
        state->socket.reset();
        return state->fail(platform_protocol::kErrorUnreachable, error.what());
    }
}

int ClientJsonApi::State::exchange(const IpcMsg& message, Json::Value& reply) {
    if (!isConnected() && !(connectAfresh() && isConnected())) {
        return fail(platform_protocol::kErrorUnreachable, "not connected");
    }
    Json::Value json;
    message.Serialize(json);
    if (!socket->send(zmq::buffer(toCompactJson(json)), zmq::send_flags::dontwait)) {
        return fail(platform_protocol::kErrorUnreachable, "not connected");
    }
    const bool answered = waitForAnswer();
    const int code = answered ? readAnswer(reply)
                              : fail(platform_protocol::kErrorUnreachable, "no answer in time");
    // The answer may still come, or come twice; on a new socket it can never be taken for the next
    // request's.
    socket.reset();
    return code;
}

int ClientJsonApi::State::readAnswer(Json::Value& reply) {
    zmq::message_t frame;
    (void)socket->recv(frame, zmq::recv_flags::dontwait);
    const bool oneFrame = !frame.more();
    for (zmq::message_t surplus; socket->get(zmq::sockopt::rcvmore);) {
        (void)socket->recv(surplus);
    }
    if (!oneFrame) {
        return fail(platform_protocol::kErrorMalformed, "the answer holds several frames");
    }
    Json::Value json;
    if (const std::string reason = decoder.decodeObject(frame.to_string_view(), json);
        !reason.empty()) {
        return fail(platform_protocol::kErrorMalformed, "the answer is " + reason);
    }
    try {
        const int result = json_member::signed32(json, "result");
        if (result < 0) {
            return fail(result, "refused: " + json_member::text(json, "error"));
        }
    } catch (const Json::Exception& error) {
        return fail(platform_protocol::kErrorMalformed,
                    std::string("the answer cannot be decoded: ") + error.what());
    }
    reply = std::move(json["payload"]);
    return 0;
}
