#include "platform/api/ClientJsonApi.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/bundled/WholeMessage.hpp"
#include "platform/records/IpcMsg.hpp"
#include "platform/records/JsonMember.hpp"
#include "platform/records/JsonText.hpp"
#include "platform/sockets/ConnectionAttempt.hpp"

#include <chrono>
#include <optional>
#include <utility>

namespace {

/// Longer than a connection to a service of the same device takes, refused or not.
constexpr std::chrono::milliseconds kConnectLimit{200};

/// How long a service may be gone before the wait for its answer ends.
constexpr std::chrono::milliseconds kLookForService{20};

/// A request socket that takes a request only for a connection that stands, so that a request to
/// an absent service fails instead of waiting in a queue; and that takes another one when the first
/// was not answered.
zmq::socket_t makeRequestSocket(zmq::context_t& context) {
    zmq::socket_t socket(context, zmq::socket_type::req);
    socket.set(zmq::sockopt::immediate, true);
    socket.set(zmq::sockopt::req_relaxed, true);
    return socket;
}

} // namespace

struct ClientJsonApi::Impl {
    Impl(const char* endpointToUse, int timeoutMs)
        : endpoint(endpointToUse), answerTimeoutMs(timeoutMs) {}

    const char* endpoint;
    int answerTimeoutMs;
    zmq::context_t* context = nullptr;
    /// One for good: when consumers have taken every other socket, requests still have theirs.
    std::optional<zmq::socket_t> socket;
    JsonDecoder decoder;

    bool isConnected() const { return (socket->get(zmq::sockopt::events) & ZMQ_POLLOUT) != 0; }

    /// Makes the connection of one request. A service that has just come up is found at once, and
    /// one that is absent refuses within microseconds.
    bool connect() {
        awaitEndOfConnection();
        std::optional<ConnectionAttempt> attempt;
        try {
            attempt.emplace(*context, *socket);
        } catch (const zmq::error_t&) {
            // There is no socket left to watch the attempt with: a refusal takes the whole limit.
        }
        socket->connect(endpoint);
        if (attempt) {
            return attempt->outcomeWithin(kConnectLimit) == ConnectionAttempt::Outcome::connected &&
                   isConnected();
        }
        zmq_pollitem_t item{socket->handle(), -1, ZMQ_POLLOUT, 0};
        return zmq_poll(&item, 1, static_cast<long>(kConnectLimit.count())) > 0;
    }

    void disconnect() {
        try {
            socket->disconnect(endpoint);
        } catch (const zmq::error_t&) {
            // The library has given the connection up by itself.
        }
    }

    /// The library ends a connection in the background; a request handed to it meanwhile is lost.
    void awaitEndOfConnection() const {
        constexpr long kLookAgainMs = 1;
        const auto end = std::chrono::steady_clock::now() + kConnectLimit;
        while (isConnected() && std::chrono::steady_clock::now() < end) {
            (void)zmq_poll(nullptr, 0, kLookAgainMs);
        }
    }

    bool waitForAnswer() {
        const auto end =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(answerTimeoutMs);
        zmq_pollitem_t item{socket->handle(), -1, ZMQ_POLLIN, 0};
        int ready = 0;
        do {
            ready = zmq_poll(&item, 1, static_cast<long>(kLookForService.count()));
        } while (ready == 0 && isConnected() && std::chrono::steady_clock::now() < end);
        // An interruption ends the wait too: that is how a stop gets through a pending request.
        return ready > 0;
    }

    int fail(int code, const std::string& reason) const {
        Logger::log(Logger::LOG_LEVEL_ERR, "request to %s: %s", endpoint, reason.c_str());
        return code;
    }

    int exchange(const IpcMsg& message, Json::Value& reply);
    int readAnswer(Json::Value& reply);
};

ClientJsonApi::ClientJsonApi(const char* endpoint, int answerTimeoutMs)
    : impl(std::make_unique<Impl>(endpoint, answerTimeoutMs)) {}
ClientJsonApi::~ClientJsonApi() = default;

int ClientJsonApi::init(zmq::context_t& context) {
    impl->context = &context;
    try {
        impl->socket = makeRequestSocket(context);
    } catch (const zmq::error_t& error) {
        return impl->fail(platform_protocol::kErrorSocket, error.what());
    }
    return 0;
}

int ClientJsonApi::request(unsigned commandId, const char* commandName, Json::Value& reply) {
    if (!impl->socket) {
        return impl->fail(platform_protocol::kErrorUnreachable, "not initialised");
    }
    IpcMsg message;
    message.commandId = commandId;
    message.commandName = commandName;
    int code = 0;
    try {
        code = impl->exchange(message, reply);
    } catch (const zmq::error_t& error) {
        code = impl->fail(platform_protocol::kErrorUnreachable, error.what());
    }
    // The answer may still come, or come twice; over a connection of its own the next request can
    // never take it for its answer.
    impl->disconnect();
    return code;
}

int ClientJsonApi::Impl::exchange(const IpcMsg& message, Json::Value& reply) {
    if (!connect()) {
        return fail(platform_protocol::kErrorUnreachable, "not connected");
    }
    Json::Value json;
    message.Serialize(json);
    if (!socket->send(zmq::buffer(toCompactJson(json)), zmq::send_flags::dontwait)) {
        return fail(platform_protocol::kErrorUnreachable, "not connected");
    }
    if (!waitForAnswer()) {
        return fail(platform_protocol::kErrorUnreachable, "no answer in time");
    }
    return readAnswer(reply);
}

int ClientJsonApi::Impl::readAnswer(Json::Value& reply) {
    zmq::message_t frame;
    if (whole_message::receive(*socket, {&frame}) > 1) {
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
