#include "tools/kaikla-sim/Recorder.hpp"

#include "platform/records/IpcMsg.hpp"

#include <json/writer.h>
#include <zmq_addon.hpp>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <ostream>
#include <stdexcept>
#include <utility>

namespace sim {

Recorder::Recorder(zmq::context_t& context, std::ostream& outputTo, std::string nameOfOutput,
                   std::ostream& reportTo)
    : output(outputTo), outputName(std::move(nameOfOutput)), report(reportTo) {
    for (const ServiceInfo& info : allServices()) {
        zmq::socket_t& socket = sockets.emplace_back(context, zmq::socket_type::sub);
        socket.connect(info.endpoint);
        // Each kind for itself: services answer a subscription to a kind with its state.
        for (const Kind& kind : allKinds()) {
            if (kind.service == info.service) {
                socket.set(zmq::sockopt::subscribe, kind.topic());
            }
        }
    }
}

void Recorder::run(const StopSignals& stop) {
    std::vector<zmq_pollitem_t> items;
    for (zmq::socket_t& socket : sockets) {
        items.push_back({socket.handle(), -1, ZMQ_POLLIN, 0});
    }
    items.push_back({nullptr, stop.descriptor(), ZMQ_POLLIN, 0});

    write("# Recorded by kaikla-sim. To play it: kaikla-sim --scenario FILE");
    while (!stop.arrived()) {
        constexpr long kWithoutLimit = -1;
        if (zmq_poll(items.data(), static_cast<int>(items.size()), kWithoutLimit) <= 0) {
            continue;
        }
        for (std::size_t i = 0; i < sockets.size(); ++i) {
            if (items[i].revents != 0) {
                receive(allServices()[i], sockets[i]);
            }
        }
    }
}

void Recorder::receive(const ServiceInfo& service, zmq::socket_t& socket) {
    std::vector<zmq::message_t> frames;
    if (!zmq::recv_multipart(socket, std::back_inserter(frames), zmq::recv_flags::dontwait)) {
        return;
    }
    std::string line;
    try {
        line = lineOf(service.service, frames);
    } catch (const NotPlayable& reason) {
        report << "kaikla-sim: skipped what the " << service.name << " sent: " << reason.what()
               << std::endl;
        return;
    }
    write(line);
    ++count;
}

std::string Recorder::lineOf(Service service, const std::vector<zmq::message_t>& frames) {
    if (frames.size() != 2) {
        throw NotPlayable("a message of " + std::to_string(frames.size()) + " frames");
    }
    Json::Value json;
    if (const std::string reason = decoder.decodeObject(frames[1].to_string_view(), json);
        !reason.empty()) {
        throw NotPlayable(reason);
    }
    IpcMsg message;
    try {
        message.Deserialize(json);
    } catch (const Json::Exception& error) {
        throw NotPlayable(error.what());
    }
    ScenarioLine line;
    line.at = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    line.kind = findKind(service, message.commandId);
    if (line.kind == nullptr) {
        throw NotPlayable("there is no kind " + std::to_string(message.commandId));
    }
    if (line.kind->topic() != frames[0].to_string_view()) {
        throw NotPlayable("kind " + line.kind->topic() + " under the topic " +
                          Json::valueToQuotedString(frames[0].to_string().c_str()));
    }
    line.payload = std::move(message.payload);
    std::string text = line.encode();
    // It must play as it was recorded.
    (void)encodeNotification(*line.kind, lineDecoder.decode(text).payload);
    return text;
}

void Recorder::write(const std::string& line) {
    if (!(output << line << std::endl)) {
        throw std::runtime_error("cannot write to " + outputName + ": " + std::strerror(errno));
    }
}

} // namespace sim
