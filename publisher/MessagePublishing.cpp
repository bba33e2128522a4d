#include "platform/api/Logger.hpp"
#include "publisher/WebNotifierPublisher.hpp"

#include <string>

/// Hands one frame over, waiting for as long as the consumer's queue is full. That is by design,
/// but it holds up the whole service, so the log says whom it waits for before it does.
void WebNotifierPublisher::send(const std::string& address, Remote& remote, zmq::message_t& frame) {
    ++remote.taken;
    if (remote.socket->send(frame, zmq::send_flags::dontwait)) {
        return;
    }
    if (remote.taken <= remote.socket->get(zmq::sockopt::sndhwm)) {
        // A queue that cannot be full yet is gone: something that is no consumer answered at the
        // address, and the library has given it up. Waiting would never end.
        Logger::log(Logger::LOG_LEVEL_WRN,
                    "WebnotifierPublisher: %s was not taken for a consumer, connecting again",
                    address.c_str());
        remote.socket->disconnect(address);
        remote.socket->connect(address);
        remote.taken = 1;
    } else {
        Logger::log(Logger::LOG_LEVEL_WRN,
                    "WebnotifierPublisher: the queue to %s is full, waiting for it to be read",
                    address.c_str());
        Logger::flush();
    }
    // The binding returns silently on EAGAIN.
    (void)remote.socket->send(frame, zmq::send_flags::none);
}

// The interface takes the target by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int WebNotifierPublisher::publishMessage(IpcMsg& message, std::string target) {
    Json::Value json;
    message.moveInto(json);
    zmq::message_t frame = encoder.encode(json);
    const auto size = static_cast<long>(frame.size());
    zmq::message_t copy;

    for (auto& [address, remote] : remotes) {
        if (!target.empty() && target != address) {
            continue;
        }
        Logger::log(Logger::LOG_LEVEL_INF, "Publishing message to socket (%s) size %ld",
                    address.c_str(), size);
        try {
            copy.copy(frame);
            send(address, remote, copy);
        } catch (const zmq::error_t&) {
            Logger::log(Logger::LOG_LEVEL_ERR,
                        "[WebnotifierPublisher] Error: sending message to socket %s interrupted",
                        address.c_str());
        }
    }
    return 0;
}
