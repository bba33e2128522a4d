#include "tools/kaikla-sim/Recorder.hpp"

#include "platform/api/Logger.hpp"
#include "platform/api/PollFds.hpp"

#include <stdexcept>

namespace sim {

Recorder::Recorder(zmq::context_t& context, RecordingFile& fileToWrite) : file(fileToWrite) {
    for (const ServiceInfo& info : allServices()) {
        NotificationSocket& socket = sockets.emplace_back(info.name, info.endpoint);
        bool complete = socket.connect(context) == 0;
        // Each kind for itself: services answer a subscription to a kind with its state.
        for (const Kind& kind : allKinds()) {
            if (kind.service == info.service) {
                complete = complete && socket.subscribe(kind.number) == 0;
            }
        }
        if (!complete) {
            throw std::runtime_error("cannot subscribe to the " + std::string(info.name));
        }
    }
}

void Recorder::run(int stopDescriptor) {
    PollFds pollFds;
    for (NotificationSocket& socket : sockets) {
        socket.addTo(pollFds);
    }
    pollFds.addFd(stopDescriptor, ZMQ_POLLIN);
    const zmq_pollitem_t& stopItem = pollFds.getPollList()[sockets.size()];

    file.writeLine("# Recorded by kaikla-sim. To play it: kaikla-sim --scenario FILE",
                   stopDescriptor);
    while (stopItem.revents == 0) {
        Logger::flush();
        constexpr long kWithoutLimit = -1;
        if (zmq_poll(pollFds.getPollList(), pollFds.getPollListSize(), kWithoutLimit) <= 0) {
            continue;
        }
        const zmq_pollitem_t* item = pollFds.getPollList();
        auto socket = sockets.begin();
        for (const ServiceInfo& info : allServices()) {
            if (item->revents != 0) {
                if (const auto line = receiveLine(*socket, info.service)) {
                    file.writeLine(*line, stopDescriptor);
                    ++count;
                }
            }
            ++item;
            ++socket;
        }
    }
}

std::optional<std::string> Recorder::receiveLine(NotificationSocket& socket, Service service) {
    std::optional<std::string> line;
    socket.receive([&](unsigned number, const Json::Value& payload) {
        const Kind* const kind = findKind(service, number);
        if (kind != nullptr) {
            line = makeLine(*kind, payload);
        }
        return kind != nullptr;
    });
    return line;
}

std::string Recorder::makeLine(const Kind& kind, const Json::Value& payload) {
    ScenarioLine line;
    line.at = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    line.kind = &kind;
    line.payload = payload;
    std::string text = line.encode();
    // What cannot be played is not recorded.
    encodeNotification(kind, check.decode(text).payload);
    return text;
}

} // namespace sim
