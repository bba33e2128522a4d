#include "gateway/Gateway.hpp"

#include "handler/WebNotifierPublishCommand.hpp"
#include "platform/api/Logger.hpp"

#include <boost/asio/post.hpp>

#include <memory>
#include <stdexcept>
#include <utility>

namespace gateway {

Gateway::Gateway(const Options& options)
    : server(options.server, *this, {}), source("service", [this] { publishSource(); }),
      parts{device,        monitors,         history,
            server.ring(), server.clients(), server.incidents(),
            source,        inboxDropped,     options.broker ? &mqttFigures : nullptr},
      api(parts, options.sessionMetrics),
      link(server.loop(), context, options.service, options.consumer, source,
           {[this] { return device.messages(); },
            [this](Json::Value& payload, std::uint64_t before) {
                waitingAnswer = {std::move(payload), before, Clock::now()};
                if (!isTakingMore) {
                    takeMessages();
                }
            }}),
      ingest(context, options.consumer,
             [this] { boost::asio::post(server.loop(), [this] { takeMessages(); }); }) {
    if (options.broker) {
        mqtt.emplace(server.loop(), *options.broker, options.instance, parts, mqttFigures,
                     [this, instance = options.instance] {
                         failure = "another gateway is " + instance + " at the broker";
                         server.stop();
                     });
    }
}

void Gateway::run() {
    server.run();
    if (!failure.empty()) {
        throw std::runtime_error(failure);
    }
}

Answer Gateway::answer(const Question& question) {
    return api.answer(question);
}

Json::Value Gateway::snapshotJson() const {
    return api.status();
}

Json::Value Gateway::sourceJson() const {
    return source.toJson();
}

void Gateway::tick() {
    link.tick();
    if (mqtt) {
        mqtt->tick();
    }
}

void Gateway::everySecond() {
    history.tick(WallClock::now(), source.state() == SourceState::live);
    publish({}, Clock::now());
}

void Gateway::stop() {
    const auto ended = [this, left = std::make_shared<int>(mqtt ? 2 : 1)] {
        if (--*left == 0) {
            server.loop().stop();
        }
    };
    if (mqtt) {
        mqtt->stop(ended);
    }
    link.removeRegistration(ended);
}

void Gateway::takeMessages() {
    Ingest::Taken taken = ingest.take();
    if (taken.dropped > 0) {
        server.incidents().count("inbox", "full",
                                 std::to_string(taken.dropped) + " messages discarded");
        inboxDropped += taken.dropped;
        server.ring().skip(taken.dropped);
        link.resync();
    }
    for (const RawMessage& message : taken.messages) {
        if (waitingAnswer && message.taken > waitingAnswer->came) {
            takeStatus();
        }
        takeMessage(message);
    }
    // Messages that are older than the answer come first.
    if (waitingAnswer && !taken.more) {
        takeStatus();
    }
    server.clients().pump();
    isTakingMore = taken.more;
    if (isTakingMore) {
        boost::asio::post(server.loop(), [this] { takeMessages(); });
    }
}

void Gateway::takeMessage(const RawMessage& message) {
    source.heard();
    try {
        Json::Value json = client::readObject(message.text);
        IpcMsg received;
        received.Deserialize(json);
        switch (received.commandId) {
        case WebNotifierPublishCommand::status_all: {
            WebNotifierDeviceStatus status;
            status.Deserialize(received.payload);
            publish(device.takeStatus(status), message.taken);
            break;
        }
        case WebNotifierPublishCommand::status_session: {
            SessionStatusData session;
            session.Deserialize(received.payload);
            publish(device.takeSession(session), message.taken);
            break;
        }
        default:
            break;
        }
    } catch (const Json::Exception& error) {
        server.incidents().count("message", "malformed", error.what());
    }
}

void Gateway::takeStatus() {
    StatusAnswer answer = *std::exchange(waitingAnswer, std::nullopt);
    try {
        WebNotifierDeviceStatus status;
        status.Deserialize(answer.payload["status"]);
        publish(device.takeAnswer(status, answer.before), Clock::now());
    } catch (const Json::Exception& error) {
        server.incidents().count("message", "malformed", error.what());
    }
}

void Gateway::publish(const DeviceState::Changes& changes, Clock::time_point taken) {
    for (const Change& change : changes) {
        if (change.kind == "ptp") {
            history.take(device.ptp()["offset_ns"].asInt64(), device.ptp()["locked"].asBool());
        }
        server.ring().publish(change.kind, change.data, taken);
    }
    if (mqtt) {
        mqtt->take(changes);
    }
    for (const Change& change : monitors.update(device, changes, Clock::now())) {
        server.ring().publish(change.kind, change.data, taken);
    }
}

void Gateway::publishSource() {
    Json::Value data;
    data["source"] = source.toJson();
    server.ring().publish("source", std::move(data), Clock::now());
    server.clients().pump();
}

} // namespace gateway
