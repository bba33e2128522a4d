#pragma once

#include "tools/client/ListeningConsumer.hpp"
#include "tools/client/ServiceConnection.hpp"
#include "tools/client/Waiting.hpp"
#include "tools/kaiklactl/CommandLine.hpp"
#include "tools/kaiklactl/StatusHistory.hpp"
#include "tools/kaiklactl/Terminal.hpp"
#include "tools/signals/StopSignals.hpp"

#include <zmq.hpp>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace kaiklactl {

/// A consumer that prints what it gets. It registers itself, again when the service has restarted,
/// and takes itself out when it ends. Everything happens in one loop that waits in one place, so
/// that messages are taken from the service whatever else is going on.
class Watch {
public:
    /// All arguments must outlive the object.
    Watch(const Options& options, zmq::context_t& context, StopSignals& stop);

    /// Returns when it has been told to end, by a signal, by its reader or by --count; when the
    /// service refuses to register it; and when there is no service to begin with. Throws Failure.
    ExitStatus run();

private:
    /// In the order in which a watch goes through them.
    enum class Phase {
        /// There is no connection to the service yet, or none any more.
        connecting,
        /// It has been asked who is registered, or to remove what a killed watch left behind.
        clearing,
        /// It has been asked to register this consumer.
        registering,
        watching,
        /// It has closed its connection to this consumer: is this consumer still on its list?
        checking,
        /// It has been asked to take this consumer out.
        removing,
        /// It has done so; what it sent before may still be on its way.
        draining,
        /// What has come is still to be written.
        flushing,
        ended,
    };

    void enter(Phase next, std::optional<std::chrono::milliseconds> limit = std::nullopt);
    void connect();
    void wait();

    void takeMessages();
    void printMessage(const std::string& frame);
    void takeReplies();
    void takeReply(const client::Reply& reply);
    void takeClearingReply(const client::Reply& reply);
    void registerConsumer();
    void takeConnectionState();
    void takeOutputState();
    void noteLeftOut();
    void takeSignal();
    void takeDeadline();
    void failWithoutAnswer();

    /// Begins the end; when it has begun before, ends at once.
    void finish();
    void beginFlushing();
    /// Whether --count messages have come.
    bool hasEnough() const;

    const Options& options;
    const client::Service service;
    zmq::context_t& context;
    StopSignals& stop;
    LineOutput output;
    client::ListeningConsumer consumer;
    const std::string address;
    std::optional<client::ServiceConnection> connection;
    StatusHistory history;

    Phase phase = Phase::connecting;
    std::optional<client::Clock::time_point> deadline;
    /// Whether this address was registered before this watch, and has been removed.
    bool leftBehind = false;
    std::size_t thrownAway = 0;
    /// Whether the service has ever registered this consumer.
    bool wasRegistered = false;
    /// Whether a message has come since it did so last.
    bool hasMessage = false;
    /// Whether the service has closed its connection after it was asked for the removal.
    bool everythingHasCome = false;
    unsigned long messageCount = 0;
    ExitStatus status = ExitStatus::success;
};

} // namespace kaiklactl
