#include "platform/api/Logger.hpp"
#include "platform/records/JsonText.hpp"
#include "publisher/SharedFrame.hpp"
#include "publisher/WebNotifierPublisher.hpp"

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
            // A full queue blocks here, by design; the binding returns silently on EAGAIN.
            (void)socket->send(copy, zmq::send_flags::none);
        } catch (const zmq::error_t&) {
            Logger::log(Logger::LOG_LEVEL_ERR,
                        "[WebnotifierPublisher] Error: sending message to socket %s interrupted",
                        address.c_str());
        }
    }
    return 0;
}
