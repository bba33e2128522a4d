#include "platform/api/Logger.hpp"
#include "publisher/WebNotifierPublisher.hpp"

#include <string>

// The interface takes the target by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int WebNotifierPublisher::publishMessage(IpcMsg& message, std::string target) {
    Json::Value json;
    message.lendTo(json);
    zmq::message_t frame = encoder.encode(json);
    message.takeBack(json);
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
            remote->send(copy);
        } catch (const zmq::error_t&) {
            Logger::log(Logger::LOG_LEVEL_ERR,
                        "[WebnotifierPublisher] Error: sending message to socket %s interrupted",
                        address.c_str());
        }
    }
    return 0;
}
