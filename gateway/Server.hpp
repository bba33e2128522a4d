#pragma once

#include "gateway/Answer.hpp"
#include "gateway/Clients.hpp"
#include "gateway/CommandLine.hpp"
#include "gateway/Listener.hpp"
#include "gateway/Users.hpp"

#include <boost/asio/signal_set.hpp>

#include <list>
#include <optional>

namespace gateway {

/// The side towards clients: listeners, connections, the events and who listens to them, and the
/// loop that everything runs in. What is told comes from an application.
class Server {
public:
    /// Everything is called inside the loop.
    class Application {
    public:
        /// What a path gives, but for the event stream.
        virtual Answer answer(const Question& question) = 0;
        /// The body of a "snapshot" event.
        virtual Json::Value snapshotJson() const = 0;
        /// What a heartbeat tells of the source.
        virtual Json::Value sourceJson() const = 0;
        /// Four times a second.
        virtual void tick() = 0;
        virtual void everySecond() = 0;
        /// A signal asks for the end, and nobody is accepted any more: ends the loop in its time.
        virtual void stop() = 0;

        Application(const Application&) = delete;
        Application& operator=(const Application&) = delete;
        Application(Application&&) = delete;
        Application& operator=(Application&&) = delete;

    protected:
        Application() = default;
        ~Application() = default;
    };

    /// Binds. Nothing is accepted before run(). Throws boost::system::system_error and
    /// std::runtime_error for what cannot be bound or read.
    Server(ServerOptions chosen, Application& described, const EventRing::Bounds& bounds);

    /// Returns when the application has stopped the loop.
    void run();

    /// As a signal does. A process that has not ended four seconds later ends at once.
    void stop();

    boost::asio::io_context& loop() { return context; }
    EventRing& ring() { return events; }
    Clients& clients() { return streams; }
    Incidents& incidents() { return happened; }

private:
    /// Many clients that come back at once share one that is at most a tenth of a second old.
    Snapshot snapshot(std::uint64_t least);
    void tick();
    void everySecond();
    void heartbeat();
    void waitForSignal();
    void reload();

    const ServerOptions options;
    Application& application;
    // What a connection uses until its last moment stands before the loop.
    Incidents happened;
    Connections connections;
    Clients streams;
    EventRing events;
    Snapshot made;
    Clock::time_point snapshotMade;
    HttpSession::Shared shared;
    std::optional<Users> users;
    TlsContext tls;
    boost::asio::io_context context;
    std::list<Listener> listeners;
    boost::asio::signal_set signals;
    Timer timer;
    unsigned ticks = 0;
    bool isStopping = false;
};

} // namespace gateway
