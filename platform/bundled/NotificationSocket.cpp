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
        kinds.insert(kind);
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

bool NotificationSocket::process(const zmq_pollitem_t& item, const Dispatch& dispatch) {
    if (!socket || item.socket != socket->handle()) {
        return false;
    }
    // Several at a time, since each return to the event loop costs a look at every socket. Not all
    // of them: the other sockets must not wait for long, and a stop waits for none.
    constexpr int kAtOnce = 32;
    try {
        for (int count = 0; count < kAtOnce && receiveOne(dispatch); ++count) {
            if (ProcessBasics::stopRequested()) {
                break;
            }
        }
    } catch (const zmq::error_t& error) {
        // The context is going down.
        Logger::log(Logger::LOG_LEVEL_ERR, "%s: Error receiving from %s. Error [%d]::%s", service,
                    endpoint, error.num(), error.what());
    }
    return true;
}

bool NotificationSocket::receiveOne(const Dispatch& dispatch) {
    const std::size_t frames = whole_message::receive(*socket, {&kindFrame, &messageFrame});
    if (frames == 0) {
        return false;
    }
    const std::optional<unsigned> kind = parseKind(kindFrame.to_string_view());
    if (frames != 2) {
        drop("it does not have two frames");
    } else if (!kind) {
        drop("its kind is not a number");
    } else if (!kinds.contains(*kind)) {
        // A subscription's prefix match brings it: 10031 for 1003.
        Logger::log(Logger::LOG_LEVEL_DBG, "%s: notification %u was not asked for", service, *kind);
    } else {
        handle(*kind, dispatch);
    }
    return true;
}

void NotificationSocket::handle(unsigned kind, const Dispatch& dispatch) {
    try {
        Json::Value json;
        if (const std::string reason = decoder.decodeObject(messageFrame.to_string_view(), json);
            !reason.empty()) {
            drop(reason);
            return;
        }
        IpcMsg message;
        message.Deserialize(json);
        if (message.commandId != kind) {
            drop("its command_id is " + std::to_string(message.commandId));
        } else if (!message.payload.isObject()) {
            drop("its payload is not an object");
        } else {
            dispatch(kind, message.payload);
        }
    } catch (const Json::LogicError& error) {
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
