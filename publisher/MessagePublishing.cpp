#include "platform/api/Logger.hpp"
#include "platform/records/JsonText.hpp"
#include "publisher/SharedFrame.hpp"
#include "publisher/WebNotifierPublisher.hpp"

#include <string>

namespace {

/// Sends one frame, waiting for as long as the consumer's queue is full. That is by design, but it
/// holds up the whole service, so the log says whom it waits for before it does.
void sendOrWait(zmq::socket_t& socket, const std::string& address, zmq::message_t& frame) {
    if (socket.send(frame, zmq::send_flags::dontwait)) {
        return;
    }
    Logger::log(Logger::LOG_LEVEL_WRN,
                "WebnotifierPublisher: the queue to %s is full, waiting for it to be read",
                address.c_str());
    Logger::flush();
    // The binding returns silently on EAGAIN.
    (void)socket.send(frame, zmq::send_flags::none);
}

} // namespace

// The interface takes the target by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int WebNotifierPublisher::publishMessage(IpcMsg& message, std::string target) {
    Json::Value json;
    message.moveInto(json);
    zmq::message_t frame = makeSharedFrame(toCompactJson(json));

    for (auto& [address, socket] : remotes) {
        if (!target.empty() && target != address) {
            continue;
        }
        Logger::log(Logger::LOG_LEVEL_INF, "Publishing message to socket (%s) size %ld",
                    address.c_str(), static_cast<long>(frame.size()));
        try {
            zmq::message_t copy;
            copy.copy(frame);
            sendOrWait(*socket, address, copy);
        } catch (const zmq::error_t&) {
            Logger::log(Logger::LOG_LEVEL_ERR,
                        "[WebnotifierPublisher] Error: sending message to socket %s interrupted",
                        address.c_str());
        }
    }
    return 0;
}
