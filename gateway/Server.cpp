#include "gateway/Server.hpp"

#include "platform/api/Logger.hpp"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace gateway {
namespace {

constexpr unsigned kTicksInSecond = 4;
constexpr std::chrono::milliseconds kTick{1000 / kTicksInSecond};
constexpr unsigned kHeartbeatS = 5;
constexpr unsigned kStopLimitS = 4;

void throwIf(const boost::system::error_code& error, const std::string& what) {
    if (error) {
        throw std::runtime_error(what + ": " + error.message());
    }
}

TlsContext readCertificate(const ServerOptions& options) {
    namespace ssl = boost::asio::ssl;
    auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    context->set_options(ssl::context::default_workarounds | ssl::context::no_tlsv1 |
                         ssl::context::no_tlsv1_1 | ssl::context::no_compression);
    boost::system::error_code error;
    // Otherwise a terminal would be asked for the password of the key, and everybody would wait.
    context->set_password_callback([](auto, auto) { return std::string(); }, error);
    context->use_certificate_chain_file(options.tlsCertificate, error);
    throwIf(error, "cannot use the certificate " + options.tlsCertificate);
    context->use_private_key_file(options.tlsKey, ssl::context::pem, error);
    throwIf(error, "cannot use the key " + options.tlsKey);
    return context;
}

} // namespace

Server::Server(ServerOptions chosen, Application& described, const EventRing::Bounds& bounds)
    : options(std::move(chosen)), application(described),
      events(bounds), shared{{}, {events, streams, happened, {}}, options.hosts, {}}, context(1),
      signals(context, SIGTERM, SIGINT, SIGHUP), timer(context) {
    shared.answer = [this](const Question& question) { return application.answer(question); };
    shared.stream.snapshot = [this](std::uint64_t least) { return snapshot(least); };
    if (!options.users.empty()) {
        users.emplace(options.users);
        tls = readCertificate(options);
    }
    for (const ListenAddress& each : options.listen) {
        const bool isGuarded = users && !each.isLoopback();
        try {
            listeners.emplace_back(
                context, Tcp::endpoint(boost::asio::ip::make_address(each.address), each.port),
                connections, shared, [this, isGuarded] { return isGuarded ? tls : TlsContext(); },
                isGuarded ? &*users : nullptr);
        } catch (const boost::system::system_error& failure) {
            throwIf(failure.code(),
                    "cannot listen on " + each.address + " port " + std::to_string(each.port));
        }
        Logger::log(Logger::LOG_LEVEL_NTF, "listening on %s port %u%s", each.address.c_str(),
                    unsigned{each.port}, isGuarded ? ", with TLS and users" : "");
    }
}

void Server::run() {
    waitForSignal();
    timer.expires_after(kTick);
    tick();
    context.run();
}

void Server::stop() {
    if (std::exchange(isStopping, true)) {
        return;
    }
    for (Listener& listener : listeners) {
        listener.close();
    }
    // A broker's name may be looked up for long, and nothing interrupts that. All else is over
    // within two seconds.
    (void)std::signal(SIGALRM, [](int) { std::_Exit(EXIT_SUCCESS); });
    (void)::alarm(kStopLimitS);
    application.stop();
}

Snapshot Server::snapshot(std::uint64_t least) {
    constexpr std::chrono::milliseconds kShared{100};
    const Clock::time_point now = Clock::now();
    const bool isGood = made.text && made.seq >= least && events.reaches(made.seq);
    if (!isGood || now - snapshotMade > kShared) {
        snapshotMade = now;
        made.seq = events.last();
        made.text = std::make_shared<const std::string>(
            eventLines("snapshot", events.id(made.seq), jsonText(application.snapshotJson())));
    }
    return made;
}

void Server::tick() {
    timer.async_wait([this](const boost::system::error_code& error) {
        if (error) {
            return;
        }
        timer.expires_at(timer.expiry() + kTick);
        application.tick();
        if (++ticks % kTicksInSecond == 0) {
            everySecond();
        }
        Logger::flush();
        tick();
    });
}

void Server::everySecond() {
    const Clock::time_point now = Clock::now();
    application.everySecond();
    streams.pump();
    streams.checkProgress(now);
    for (HttpSession* const session : shared.sessions) {
        session->checkDeadline(now);
    }
    if (ticks % (kHeartbeatS * kTicksInSecond) == 0) {
        heartbeat();
    }
}

void Server::heartbeat() {
    Json::Value data;
    data["seq"] = Json::UInt64{events.last()};
    data["source"] = application.sourceJson();
    streams.sendHeartbeat(
        std::make_shared<const std::string>(eventLines("heartbeat", "", jsonText(data))));
}

void Server::waitForSignal() {
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

/// Connections that stand keep what they began with.
void Server::reload() {
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
