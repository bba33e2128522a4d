#include "platform/api/Logger.hpp"
#include "publisher/WebNotifierPublisher.hpp"

#include <exception>
#include <string>
#include <utility>

namespace {

/// A long document gains nothing by waiting for the next one, which takes long to make.
constexpr std::size_t kMaxHeldBytes = 65536;

} // namespace

int WebNotifierPublisher::publishMessage(IpcMsg& message, std::string target) {
    Json::Value json;
    message.lendTo(json);
    zmq::message_t frame = encoder.encode(json);
    message.takeBack(json);
    held.push_back({std::move(frame), std::move(target)});
    heldBytes += held.back().frame.size();
    if (!holding || heldBytes >= kMaxHeldBytes) {
        sendHeld();
    }
    return 0;
}

void WebNotifierPublisher::release() {
    holding = false;
    sendHeld();
}

void WebNotifierPublisher::sendHeld() {
    zmq::message_t copy;
    for (auto& [address, remote] : remotes) {
        for (Held& message : held) {
            if (!message.target.empty() && message.target != address) {
                continue;
            }
            Logger::log(Logger::LOG_LEVEL_INF, "Publishing message to socket (%s) size %ld",
                        address.c_str(), static_cast<long>(message.frame.size()));
            try {
                copy.copy(message.frame);
                remote->send(copy);
            } catch (const std::exception&) {
                Logger::log(
                    Logger::LOG_LEVEL_ERR,
                    "[WebnotifierPublisher] Error: sending message to socket %s interrupted",
                    address.c_str());
            }
        }
    }
    held.clear();
    heldBytes = 0;
}
