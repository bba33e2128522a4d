#include "platform/bundled/NotificationSocket.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/ProcessBasics.hpp"
#include "platform/bundled/WholeMessage.hpp"
#include "platform/records/IpcMsg.hpp"

#include <charconv>
#include <exception>

namespace {

/// The kind that a topic frame names, if it is one in plain decimal digits.
std::optional<unsigned> parseKind(std::string_view topic) {
    unsigned kind = 0;
    const char* const end = topic.data() + topic.size();
    const auto [rest, error] = std::from_chars(topic.data(), end, kind);
    if (topic.empty() || error != std::errc() || rest != end) {
        return std::nullopt;
    }
    return kind;
}

} // namespace

NotificationSocket::NotificationSocket(const char* serviceName, const char* endpointToUse)
    : service(serviceName), endpoint(endpointToUse) {}

int NotificationSocket::connect(zmq::context_t& context) {
    try {
        socket.emplace(context, zmq::socket_type::sub);
        socket->connect(endpoint);
    } catch (const zmq::error_t& error) {
        socket.reset();
        Logger::log(Logger::LOG_LEVEL_ERR, "%s: Error connecting to %s. Error [%d]::%s", service,
                    endpoint, error.num(), error.what());
        return platform_protocol::kErrorSocket;
    }
    return 0;
}

int NotificationSocket::subscribe(unsigned kind) {
    if (!socket) {
        return platform_protocol::kErrorSocket;
    }
    try {
        socket->set(zmq::sockopt::subscribe, std::to_string(kind));
    } catch (const zmq::error_t& error) {
        Logger::log(Logger::LOG_LEVEL_ERR, "%s: Error subscribing to %u. Error [%d]::%s", service,
                    kind, error.num(), error.what());
        return platform_protocol::kErrorSocket;
    }
    return 0;
}

int NotificationSocket::addTo(PollFds& pollFds) {
    return pollFds.addSocket(socket ? socket->handle() : nullptr, ZMQ_POLLIN);
}

bool NotificationSocket::owns(const zmq_pollitem_t& item) const {
    return socket && item.socket == socket->handle();
}

void NotificationSocket::receive(const Dispatch& dispatch) {
    // Several at a time: each return to the event loop costs a look at every socket, and what they
    // publish leaves together. Not all of them: neither the other sockets nor what is to leave must
    // wait for long, and a stop waits for none.
    constexpr int kAtOnce = 32;
    constexpr std::size_t kBytesAtOnce = 65536;
    std::size_t bytes = 0;
    try {
        for (int received = 0; received < kAtOnce && bytes < kBytesAtOnce && receiveOne(dispatch);
             ++received) {
            bytes += messageFrame.size();
            if (ProcessBasics::stopRequested()) {
                break;
            }
        }
    } catch (const zmq::error_t& error) {
        // The context is going down.
        Logger::log(Logger::LOG_LEVEL_ERR, "%s: Error receiving from %s. Error [%d]::%s", service,
                    endpoint, error.num(), error.what());
    }
}

bool NotificationSocket::receiveOne(const Dispatch& dispatch) {
    const std::size_t frames = whole_message::receive(*socket, {&kindFrame, &messageFrame});
    if (frames == 0) {
        return false;
    }
    constexpr std::size_t kKindAndMessage = 2;
    handle(frames == kKindAndMessage, dispatch);
    return true;
}

void NotificationSocket::handle(bool twoFrames, const Dispatch& dispatch) {
    if (!twoFrames) {
        drop("it does not have two frames");
        return;
    }
    const std::optional<unsigned> kind = parseKind(kindFrame.to_string_view());
    if (!kind) {
        drop("its kind is not a number");
        return;
    }
    try {
        Json::Value json;
        if (const std::string reason = decoder.decodeObject(messageFrame.to_string_view(), json);
            !reason.empty()) {
            drop(reason);
            return;
        }
        IpcMsg message;
        message.Deserialize(json);
        if (message.commandId != *kind) {
            drop("its command_id is " + std::to_string(message.commandId));
        } else if (!message.payload.isObject()) {
            drop("its payload is not an object");
        } else if (!dispatch(*kind, message.payload)) {
            // A subscription's prefix match brings it: 10031 for 1003.
            Logger::log(Logger::LOG_LEVEL_DBG, "%s: notification %u was not asked for", service,
                        *kind);
        }
    } catch (const Json::Exception& error) {
        drop(error.what());
    } catch (const std::exception& error) {
        // The receiver may have taken in a part of it.
        report("not carried through: ", error.what());
    }
}

void NotificationSocket::drop(const std::string& reason) {
    report("dropped: ", reason.c_str());
}

void NotificationSocket::report(const char* outcome, const char* reason) {
    // A topic of any length and content may come in; a line needs no more than its beginning.
    constexpr std::size_t kShown = 32;
    const std::string kind(kindFrame.to_string_view().substr(0, kShown));
    Logger::log(Logger::LOG_LEVEL_ERR, "%s: notification %s %s%s", service, kind.c_str(), outcome,
                reason);
}
