#include "platform/api/Logger.hpp"
#include "platform/api/ResultCode.hpp"
#include "publisher/WebNotifierPublisher.hpp"

WebNotifierPublisher::~WebNotifierPublisher() {
    Logger::log(Logger::LOG_LEVEL_INF, "Destroying %ld active connections",
                static_cast<long>(remotes.size()));
    // In the order of the addresses, which clear() does not promise.
    for (auto& remote : remotes) {
        remote.second.connection.reset();
    }
    remotes.clear();
}

int WebNotifierPublisher::addRemote(zmq::context_t& context, std::string& address) {
    const auto place = remotes.lower_bound(address);
    if (place != remotes.end() && place->first == address) {
        Logger::log(Logger::LOG_LEVEL_ERR,
                    "WebnotifierPublisher: we already have a connection to this remote server %s. "
                    "ignoring it.",
                    address.c_str());
        return 0;
    }
    try {
        remotes.emplace_hint(place, address,
                             Remote{std::make_unique<RemoteConsumer>(context, address)});
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
