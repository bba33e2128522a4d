#include "gateway/Gateway.hpp"

#include "handler/WebNotifierPublishCommand.hpp"
#include "platform/api/Logger.hpp"

#include <boost/asio/post.hpp>

#include <csignal>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

namespace gateway {
namespace {

constexpr unsigned kTicksInSecond = 4;
constexpr std::chrono::milliseconds kTick{1000 / kTicksInSecond};
constexpr unsigned kHeartbeatS = 5;

TlsContext readCertificate(const Options& options) {
    namespace ssl = boost::asio::ssl;
    auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    context->set_options(ssl::context::default_workarounds | ssl::context::no_tlsv1 |
                         ssl::context::no_tlsv1_1 | ssl::context::no_compression);
    context->use_certificate_chain_file(options.tlsCertificate);
    context->use_private_key_file(options.tlsKey, ssl::context::pem);
    return context;
}

} // namespace

Gateway::Gateway(Options chosen)
    : options(std::move(chosen)), source([this] { publishSource(); }),
      parts{device, monitors,     history,
            ring,   clients,      incidents,
            source, inboxDropped, options.broker ? &mqttFigures : nullptr},
      api(parts, options.sessionMetrics),
      shared{api, {ring, clients, incidents, [this] { return api.snapshot(); }}, options.hosts, {}},
      loop(1),
      link(loop, context, options.service, options.consumer, source,
           {[this] { return device.messages(); },
            [this](Json::Value& payload, std::uint64_t before) { takeStatus(payload, before); }}),
      signals(loop, SIGTERM, SIGINT, SIGHUP), timer(loop),
      ingest(context, options.consumer,
             [this] { boost::asio::post(loop, [this] { takeMessages(); }); }) {
    if (!options.users.empty()) {
        users.emplace(options.users);
        tls = readCertificate(options);
    }
    if (options.broker) {
        mqtt.emplace(loop, *options.broker, options.instance, parts, mqttFigures, [this] {
            failure = "another gateway is " + options.instance + " at the broker";
            stop();
        });
    }
    for (const ListenAddress& each : options.listen) {
        const bool isGuarded = users && !each.isLoopback();
        listeners.emplace_back(
            loop, Tcp::endpoint(boost::asio::ip::make_address(each.address), each.port),
            connections, shared, [this, isGuarded] { return isGuarded ? tls : TlsContext(); },
            isGuarded ? &*users : nullptr);
        Logger::log(Logger::LOG_LEVEL_NTF, "listening on %s port %u%s", each.address.c_str(),
                    unsigned{each.port}, isGuarded ? ", with TLS and users" : "");
    }
}

void Gateway::run() {
    waitForSignal();
    timer.expires_after(kTick);
    tick();
    loop.run();
    if (!failure.empty()) {
        throw std::runtime_error(failure);
    }
}

void Gateway::takeMessages() {
    Ingest::Taken taken = ingest.take();
    if (taken.dropped > 0) {
        incidents.count("inbox", "full", std::to_string(taken.dropped) + " messages discarded");
        inboxDropped += taken.dropped;
        ring.skip(taken.dropped);
        link.resync();
    }
    for (const RawMessage& message : taken.messages) {
        takeMessage(message);
    }
    clients.pump();
    if (taken.more) {
        boost::asio::post(loop, [this] { takeMessages(); });
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
        incidents.count("message", "malformed", error.what());
    }
}

void Gateway::takeStatus(Json::Value& payload, std::uint64_t before) {
    // Messages that are older than the answer come first.
    takeMessages();
    try {
        WebNotifierDeviceStatus status;
        status.Deserialize(payload["status"]);
        publish(device.takeAnswer(status, before), Clock::now());
    } catch (const Json::Exception& error) {
        incidents.count("message", "malformed", error.what());
    }
    clients.pump();
}

void Gateway::publish(const DeviceState::Changes& changes, Clock::time_point taken) {
    for (const Change& change : changes) {
        if (change.kind == "ptp") {
            history.take(device.ptp()["offset_ns"].asInt64(), device.ptp()["locked"].asBool());
        }
        ring.publish(change.kind, change.data, taken);
    }
    if (mqtt) {
        mqtt->take(changes);
    }
    for (const Change& change : monitors.update(device, changes, Clock::now())) {
        ring.publish(change.kind, change.data, taken);
    }
}

void Gateway::publishSource() {
    Json::Value data;
    data["source"] = source.toJson();
    ring.publish("source", std::move(data), Clock::now());
    clients.pump();
}

void Gateway::tick() {
    timer.async_wait([this](const boost::system::error_code& error) {
        if (error) {
            return;
        }
        timer.expires_at(timer.expiry() + kTick);
        link.tick();
        if (mqtt) {
            mqtt->tick();
        }
        if (++ticks % kTicksInSecond == 0) {
            everySecond();
        }
        Logger::flush();
        tick();
    });
}

void Gateway::everySecond() {
    const Clock::time_point now = Clock::now();
    history.tick(WallClock::now(), source.state() == SourceState::live);
    publish({}, now);
    clients.pump();
    clients.checkProgress(now);
    for (HttpSession* const session : shared.sessions) {
        session->checkDeadline(now);
    }
    if (ticks % (kHeartbeatS * kTicksInSecond) == 0) {
        heartbeat();
    }
}

void Gateway::heartbeat() {
    Json::Value data;
    data["seq"] = Json::UInt64{ring.last()};
    data["source"] = source.toJson();
    clients.sendHeartbeat(
        std::make_shared<const std::string>(eventLines("heartbeat", "", jsonText(data))));
}

void Gateway::waitForSignal() {
    signals.async_wait([this](const boost::system::error_code& error, int signal) {
        if (error) {
            return;
        }
        if (signal == SIGHUP) {
            reload();
            waitForSignal();
            return;
        }
        Logger::log(Logger::LOG_LEVEL_NTF, "stopping");
        stop();
    });
}

void Gateway::stop() {
    if (std::exchange(isStopping, true)) {
        return;
    }
    for (Listener& listener : listeners) {
        listener.close();
    }
    const auto ended = [this, left = std::make_shared<int>(mqtt ? 2 : 1)] {
        if (--*left == 0) {
            loop.stop();
        }
    };
    if (mqtt) {
        mqtt->stop(ended);
    }
    link.removeRegistration(ended);
}

/// Connections that stand keep what they began with.
void Gateway::reload() {
    if (!users) {
        return;
    }
    try {
        users->reload();
        tls = readCertificate(options);
        Logger::log(Logger::LOG_LEVEL_NTF, "certificate and users have been read again");
    } catch (const std::exception& error) {
        Logger::log(Logger::LOG_LEVEL_ERR, "going on with the old certificate or users: %s",
                    error.what());
    }
}

} // namespace gateway
