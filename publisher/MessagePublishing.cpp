#include "platform/api/Logger.hpp"
#include "publisher/WebNotifierPublisher.hpp"

#include <exception>
#include <string>
#include <utility>

namespace {

/// A long document gains nothing by waiting for the next one, which takes long to make.
constexpr std::size_t kMaxHeldBytes = 65536;

bool isFor(const std::string& target, const std::string& address) {
    return target.empty() || target == address;
}

} // namespace

int WebNotifierPublisher::publishMessage(IpcMsg& message, std::string target) {
    Json::Value json;
    message.lendTo(json);
    zmq::message_t frame = encoder.encode(json);
    message.takeBack(json);
    const auto size = static_cast<long>(frame.size());

    for (auto& [address, remote] : remotes) {
        if (!isFor(target, address)) {
            continue;
        }
        Logger::log(Logger::LOG_LEVEL_INF, "Publishing message to socket (%s) size %ld",
                    address.c_str(), size);
        if (!holding) {
            (void)send(frame, address, *remote.connection, WhenFull::wait);
        }
    }
    if (holding) {
        held.push_back({std::move(frame), std::move(target)});
        heldBytes += held.back().frame.size();
        if (heldBytes >= kMaxHeldBytes) {
            sendHeld();
        }
    }
    return 0;
}

bool WebNotifierPublisher::send(zmq::message_t& frame, const std::string& address,
                                RemoteConsumer& consumer, WhenFull whenFull) {
    try {
        copy.copy(frame);
        if (consumer.sendAtOnce(copy)) {
            return true;
        }
        if (whenFull == WhenFull::leave) {
            return false;
        }
        consumer.sendWhenThereIsRoom(copy);
    } catch (const std::exception&) {
        Logger::log(Logger::LOG_LEVEL_ERR,
                    "[WebnotifierPublisher] Error: sending message to socket %s interrupted",
                    address.c_str());
    }
    return true;
}

void WebNotifierPublisher::release() {
    sendHeld();
    holding = false;
}

void WebNotifierPublisher::sendHeld() {
    if (held.empty()) {
        return;
    }
    for (auto& [address, remote] : remotes) {
        remote.heldDone = 0;
        sendHeldTo(address, remote, WhenFull::leave);
    }
    // Only now is anybody waited for: whoever has room has it all.
    for (auto& [address, remote] : remotes) {
        sendHeldTo(address, remote, WhenFull::wait);
    }
    held.clear();
    heldBytes = 0;
}

void WebNotifierPublisher::sendHeldTo(const std::string& address, Remote& remote,
                                      WhenFull whenFull) {
    for (; remote.heldDone < held.size(); ++remote.heldDone) {
        Held& message = held[remote.heldDone];
        if (isFor(message.target, address) &&
            !send(message.frame, address, *remote.connection, whenFull)) {
            return;
        }
    }
}
