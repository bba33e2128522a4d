#pragma once

#include "tools/client/ListeningConsumer.hpp"
#include "tools/client/ServiceConnection.hpp"
#include "tools/client/Waiting.hpp"
#include "tools/kaiklactl/CommandLine.hpp"
#include "tools/kaiklactl/StatusHistory.hpp"
#include "tools/kaiklactl/Terminal.hpp"
#include "tools/process/StopSignals.hpp"

#include <zmq.hpp>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace kaiklactl {

/// A consumer that prints its messages. It registers itself, again when the service has restarted,
/// and removes itself at the end. One loop waits in one place, so messages are always taken: a
/// consumer that does not read blocks the service.
class Watch {
public:
    /// All arguments must outlive the object.
    Watch(const Options& options, zmq::context_t& context, StopSignals& stop);

    /// Returns after a signal, when its reader has gone, after --count messages, when the service
    /// refuses to register it, and when there is no service at the start. Throws client::Failure,
    /// and std::runtime_error when the output cannot be written.
    ExitStatus run();

private:
    /// In the order in which a watch goes through them.
    enum class Phase {
        /// There is no connection to the service.
        connecting,
        /// Asking whether a killed watch has left this address registered, and removing it.
        clearing,
        registering,
        watching,
        /// The service has closed its connection: asking whether this consumer is still registered.
        checking,
        removing,
        /// Removed; messages sent before may still arrive.
        draining,
        /// Lines are still to be written.
        flushing,
        ended,
    };

    void enter(Phase next, std::optional<std::chrono::milliseconds> limit = std::nullopt);
    void connect();
    void wait();

    /// Takes what has come, up to a bound. Returns whether there may be more.
    bool takeMessages();
    void takeAllMessages();
    void throwAway();
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

    /// Begins the end; the second call ends at once.
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
    std::unique_ptr<client::ServiceConnection> connection;
    StatusHistory history;

    Phase phase = Phase::connecting;
    std::optional<client::Clock::time_point> deadline;
    /// Whether a killed watch had left this address registered; it has been removed.
    bool leftBehind = false;
    /// How many messages have come for that watch.
    std::size_t thrownAway = 0;
    /// Whether this watch has ever been registered.
    bool wasRegistered = false;
    /// Whether a message has come since the last registration.
    bool hasMessage = false;
    /// Whether the service has closed its connection since the removal was requested.
    bool everythingHasCome = false;
    unsigned long messageCount = 0;
    ExitStatus status = ExitStatus::success;
};

} // namespace kaiklactl
