#include "tools/kaikla-sim/Recorder.hpp"

#include <ostream>
#include <utility>
#include <vector>

namespace sim {

Recorder::Recorder(zmq::context_t& context, RecordingFile& fileToWrite, std::ostream& reportTo)
    : file(fileToWrite), report(reportTo) {
    for (const ServiceInfo& info : allServices()) {
        receivers.emplace_back(context, info.service);
    }
}

void Recorder::run(int stopDescriptor) {
    std::vector<zmq_pollitem_t> items;
    for (NotificationReceiver& receiver : receivers) {
        items.push_back({receiver.handle(), -1, ZMQ_POLLIN, 0});
    }
    items.push_back({nullptr, stopDescriptor, ZMQ_POLLIN, 0});
    const zmq_pollitem_t& stopItem = items.back();

    file.writeLine("# Recorded by kaikla-sim. To play it: kaikla-sim --scenario FILE",
                   stopDescriptor);
    while (stopItem.revents == 0) {
        constexpr long kWithoutLimit = -1;
        if (zmq_poll(items.data(), static_cast<int>(items.size()), kWithoutLimit) <= 0) {
            continue;
        }
        auto item = items.cbegin();
        auto receiver = receivers.begin();
        for (const ServiceInfo& info : allServices()) {
            if (item->revents != 0) {
                if (const auto line = receiveLine(*receiver, info.name)) {
                    file.writeLine(*line, stopDescriptor);
                    ++count;
                }
            }
            ++item;
            ++receiver;
        }
    }
}

std::optional<std::string> Recorder::receiveLine(NotificationReceiver& receiver,
                                                 const char* serviceName) {
    try {
        std::optional<Notification> notification = receiver.receive();
        return notification ? std::optional(makeLine(std::move(*notification))) : std::nullopt;
    } catch (const ScenarioMistake& mistake) {
        report << "kaikla-sim: skipped what the " << serviceName << " sent: " << mistake.what()
               << std::endl;
        return std::nullopt;
    }
}

std::string Recorder::makeLine(Notification notification) {
    ScenarioLine line;
    line.at = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    line.kind = notification.kind;
    line.payload = std::move(notification.payload);
    std::string text = line.encode();
    // What could not be played is not recorded.
    (void)encodeNotification(*line.kind, check.decode(text).payload);
    return text;
}

} // namespace sim
