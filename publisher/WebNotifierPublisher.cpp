#include "publisher/WebNotifierPublisher.hpp"

#include "platform/api/Logger.hpp"
#include "platform/api/ResultCode.hpp"
#include "platform/records/JsonText.hpp"

#include <utility>

namespace {

/// Sends the bytes of `frame`, which stays as it is.
void send(zmq::message_t& frame, const std::string& address, zmq::socket_t& socket) {
    try {
        // A blocked send holds up the whole service by design, so an operator must see who it is.
        if ((socket.get(zmq::sockopt::events) & ZMQ_POLLOUT) == 0) {
            Logger::log(Logger::LOG_LEVEL_WRN,
                        "WebnotifierPublisher: the queue to %s is full, waiting for it to be read",
                        address.c_str());
            Logger::flush();
        }
        zmq::message_t copy;
        copy.copy(frame);
        // Its result tells EAGAIN apart, which is passed over in silence.
        (void)socket.send(copy, zmq::send_flags::none);
    } catch (const zmq::error_t&) {
        Logger::log(Logger::LOG_LEVEL_ERR,
                    "[WebnotifierPublisher] Error: sending message to socket %s interrupted",
                    address.c_str());
    }
}

} // namespace

WebNotifierPublisher::WebNotifierPublisher() : writer(makeCompactWriter()) {
    // Without this a lack of memory would send what was written so far.
    text.exceptions(std::ios::badbit);
}

WebNotifierPublisher::~WebNotifierPublisher() {
    Logger::log(Logger::LOG_LEVEL_INF, "Destroying %ld active connections",
                static_cast<long>(remotes.size()));
    // In the order of the addresses, which clear() does not promise.
    while (!remotes.empty()) {
        remotes.erase(remotes.begin());
    }
}

int WebNotifierPublisher::addRemote(zmq::context_t& context, std::string& address) {
    if (remotes.contains(address)) {
        Logger::log(Logger::LOG_LEVEL_ERR,
                    "WebnotifierPublisher: we already have a connection to this remote server %s. "
                    "ignoring it.",
                    address.c_str());
        return 0;
    }
    try {
        zmq::socket_t socket(context, zmq::socket_type::push);
        socket.connect(address);
        remotes.emplace(address, std::move(socket));
    } catch (const zmq::error_t& error) {
        Logger::log(Logger::LOG_LEVEL_ERR,
                    "WebnotifierPublisher: Error  Connecting socket on addr %s. Error [%d]::%s",
                    address.c_str(), error.num(), error.what());
        return result_code::kConsumerNotConnected;
    }
    return 0;
}

int WebNotifierPublisher::removeRemote(std::string& address) {
    const auto entry = remotes.find(address);
    if (entry == remotes.end()) {
        return 0;
    }
    Logger::log(Logger::LOG_LEVEL_WRN, "WebnotifierPublisher: destroying socket to %s",
                address.c_str());
    remotes.erase(entry);
    return 0;
}

int WebNotifierPublisher::getRemoteServersList(std::list<std::string>& out) {
    for (const auto& remote : remotes) {
        out.push_back(remote.first);
    }
    return 0;
}

// The interface takes the target by value. NOLINTNEXTLINE(performance-unnecessary-value-param)
int WebNotifierPublisher::publishMessage(IpcMsg& message, std::string target) {
    zmq::message_t frame = encode(message);
    for (auto& [address, socket] : remotes) {
        if (!target.empty() && target != address) {
            continue;
        }
        Logger::log(Logger::LOG_LEVEL_INF, "Publishing message to socket (%s) size %ld",
                    address.c_str(), static_cast<long>(frame.size()));
        send(frame, address, socket);
    }
    return 0;
}

zmq::message_t WebNotifierPublisher::encode(const IpcMsg& message) {
    Json::Value json;
    message.Serialize(json);
    // An encoding that failed may have left half a text.
    text.clear();
    text.str({});
    writer->write(json, &text);
    return zmq::message_t(text.view());
}
