#include "platform/api/ClientJsonApi.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/ProcessBasics.hpp"
#include "platform/bundled/WholeMessage.hpp"
#include "platform/records/IpcMsg.hpp"
#include "platform/records/JsonMember.hpp"
#include "platform/records/JsonText.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

using std::chrono::milliseconds;

namespace {

/// Longer than a service of the same device takes to accept a connection.
constexpr milliseconds kConnectLimit{50};

/// Longer than the library takes to give back what a closed socket had.
constexpr milliseconds kCloseLimit{200};

/// How often a wait looks whether the service is still there.
constexpr milliseconds kLookForService{20};

/// Whether anything accepts a connection at `endpoint`, which the library does not tell; true for
/// what is no numeric "tcp://" address. A flood of requests would add up the waits for nobody.
bool somebodyListens(const std::string& endpoint) {
    constexpr std::string_view kTcp = "tcp://";
    const std::size_t colon = endpoint.rfind(':');
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (!endpoint.starts_with(kTcp) ||
        ::inet_pton(AF_INET, endpoint.substr(kTcp.size(), colon - kTcp.size()).c_str(),
                    &address.sin_addr) != 1) {
        return true;
    }
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoul(endpoint.substr(colon + 1))));
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    (void)!::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    pollfd item{probe, POLLOUT, 0};
    const int ready = ::poll(&item, 1, static_cast<int>(kConnectLimit.count()));
    ::close(probe);
    return ready == 1 && (item.revents & (POLLERR | POLLNVAL)) == 0;
}

} // namespace

struct ClientJsonApi::Impl {
    using Clock = std::chrono::steady_clock;

    Impl(const char* endpointToUse, int timeoutMs)
        : endpoint(endpointToUse), answerTimeout(timeoutMs) {}

    const char* endpoint;
    milliseconds answerTimeout;
    zmq::context_t* context = nullptr;
    /// Kept, so that consumers cannot use up the socket that requests need.
    std::optional<zmq::socket_t> socket;
    JsonDecoder decoder;

    /// Begins to connect, with a new socket: one that connects again may hand a request to the
    /// connection that is ending, or take the answer to an earlier one.
    void open() {
        socket.reset();
        const auto end = Clock::now() + kCloseLimit;
        while (!socket) {
            try {
                socket.emplace(*context, zmq::socket_type::req);
            } catch (const zmq::error_t& error) {
                // Consumers have all the others, and the library closes in the background.
                if (error.num() != EMFILE || Clock::now() > end) {
                    throw;
                }
                (void)zmq_poll(nullptr, 0, 1);
            }
        }
        // A request to an absent service fails instead of waiting in a queue.
        socket->set(zmq::sockopt::immediate, true);
        // Otherwise the socket does not tell, while an answer is awaited, whether it is connected.
        socket->set(zmq::sockopt::req_relaxed, true);
        // What was not taken is not wanted any more.
        socket->set(zmq::sockopt::linger, 0);
        socket->connect(endpoint);
    }

    bool isConnected() {
        return socket.has_value() &&
               (whole_message::uninterrupted([this] { return socket->get(zmq::sockopt::events); }) &
                ZMQ_POLLOUT) != 0;
    }

    /// Waits for one of `events`, at most for `limit`, less when a stop is requested or, while an
    /// answer is awaited, the service goes away.
    bool waitFor(short events, milliseconds limit) {
        Logger::flush();
        zmq_pollitem_t item{socket->handle(), -1, events, 0};
        const auto end = Clock::now() + limit;
        while (!ProcessBasics::stopRequested()) {
            const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
            const auto step = std::clamp(left, milliseconds(0), kLookForService);
            if (zmq_poll(&item, 1, static_cast<long>(step.count())) > 0) {
                return true;
            }
            if (left.count() <= 0 || (events == ZMQ_POLLIN && !isConnected())) {
                return false;
            }
        }
        return false;
    }

    bool connect() {
        if (context != nullptr && !isConnected() && somebodyListens(endpoint)) {
            // The library waits between its attempts.
            open();
            (void)waitFor(ZMQ_POLLOUT, kConnectLimit);
        }
        return isConnected();
    }

    int fail(int code, const std::string& reason) const {
        Logger::log(Logger::LOG_LEVEL_ERR, "request to %s: %s", endpoint, reason.c_str());
        return code;
    }

    int failToReach(const char* reason) const {
        return fail(platform_protocol::kErrorUnreachable,
                    ProcessBasics::stopRequested() ? "given up, the service is to stop" : reason);
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
        impl->open();
    } catch (const zmq::error_t& error) {
        return impl->fail(platform_protocol::kErrorSocket, error.what());
    }
    return 0;
}

int ClientJsonApi::request(unsigned commandId, const char* commandName, Json::Value& reply) {
    IpcMsg message;
    message.commandId = commandId;
    message.commandName = commandName;
    try {
        if (!impl->connect()) {
            return impl->failToReach("not connected");
        }
        const int code = impl->exchange(message, reply);
        if (code < 0) {
            // At once, before a consumer can take the socket's place.
            impl->open();
        }
        return code;
    } catch (const zmq::error_t& error) {
        impl->socket.reset();
        return impl->failToReach(error.what());
    }
}

int ClientJsonApi::Impl::exchange(const IpcMsg& message, Json::Value& reply) {
    Json::Value json;
    message.Serialize(json);
    const std::string text = toCompactJson(json);
    if (!whole_message::uninterrupted(
            [&] { return socket->send(zmq::buffer(text), zmq::send_flags::dontwait); })) {
        return failToReach("not connected");
    }
    if (!waitFor(ZMQ_POLLIN, answerTimeout)) {
        return failToReach(isConnected() ? "no answer in time" : "gone before it answered");
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
            const Json::Value& sentence = json["error"];
            return fail(result, "refused: " + (sentence.isString() ? sentence.asString() : ""));
        }
    } catch (const Json::Exception& error) {
        return fail(platform_protocol::kErrorMalformed,
                    std::string("the answer cannot be decoded: ") + error.what());
    }
    reply = std::move(json["payload"]);
    if (reply.isNull()) {
        reply = Json::Value(Json::objectValue);
    }
    return 0;
}
