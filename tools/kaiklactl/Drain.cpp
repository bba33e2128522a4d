#include "tools/kaiklactl/Drain.hpp"

#include "tools/client/Address.hpp"
#include "tools/client/Failure.hpp"
#include "tools/client/ListeningConsumer.hpp"
#include "tools/client/ServiceConnection.hpp"
#include "tools/client/Waiting.hpp"
#include "tools/kaiklactl/StatusReport.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

namespace kaiklactl {
namespace {

/// How long the messages sent before the removal may take to arrive.
constexpr std::chrono::milliseconds kLastMessagesLimit{300};

/// Messages thrown away in one go, so that a flood of them does not keep a signal waiting.
constexpr int kMessagesATurn = 256;

class Drain {
public:
    Drain(const Options& options, zmq::context_t& context, StopSignals& stopSignals)
        : address(options.address), service{options.server, options.timeout}, stop(stopSignals),
          consumer(context, client::withNumericHost(address), options.server),
          connection(context, options.server) {}

    std::string run() {
        const bool wasRegistered = remove();
        if (wasRegistered) {
            takeLastMessages();
        }
        return address + (wasRegistered ? " is not registered any more" : " was not registered") +
               "; " + counted(thrownAway, "message") + " thrown away.";
    }

private:
    bool remove();
    void takeLastMessages();
    std::string noAnswerSentence(client::ServiceConnection::State state) const;

    /// Waits until something has come, and throws messages away.
    void wait(client::Clock::time_point deadline) {
        std::array<zmq_pollitem_t, 5> items = {consumer.messageItem(), consumer.stateItem(),
                                               connection.stateItem(), connection.replyItem(),
                                               client::pollItem(stop)};
        client::waitFor(items, deadline);
        client::throwIfStopped(stop);
        for (int turn = 0; turn < kMessagesATurn && consumer.receive(); ++turn) {
            ++thrownAway;
        }
    }

    const std::string address;
    const client::Service service;
    StopSignals& stop;
    client::ListeningConsumer consumer;
    client::ServiceConnection connection;
    std::size_t thrownAway = 0;
};

/// Has the service remove the address as soon as it answers. Returns whether it was registered.
bool Drain::remove() {
    using State = client::ServiceConnection::State;
    bool wasRegistered = false;
    bool sent = false;
    auto deadline = client::Clock::now() + service.timeout;
    for (;;) {
        const std::size_t before = thrownAway;
        wait(deadline);
        // A service that sends is not stuck: it comes to the request later.
        if (thrownAway != before) {
            deadline = client::Clock::now() + service.timeout;
        }
        (void)consumer.lostConnection();
        while (const std::optional<client::Reply> reply = connection.receive()) {
            if (reply->command != WebNotifierCommand::get_server_list) {
                return wasRegistered;
            }
            const std::vector<std::string> all = client::registeredConsumers(reply->payload);
            wasRegistered = std::find(all.begin(), all.end(), address) != all.end();
        }
        const State state = connection.update();
        if (state == State::connected && !sent) {
            connection.send(WebNotifierCommand::get_server_list);
            connection.send(WebNotifierCommand::remove_remote_info_consumer,
                            client::consumerPayload(address));
            sent = true;
        }
        if (state == State::lost || client::Clock::now() >= deadline) {
            throw client::NoAnswer(noAnswerSentence(state));
        }
    }
}

std::string Drain::noAnswerSentence(client::ServiceConnection::State state) const {
    if (state != client::ServiceConnection::State::connected || thrownAway != 0) {
        return client::noAnswerSentence(service, state);
    }
    return "no answer from " + service.endpoint + ", and nothing came to " + address +
           ". The service waits for another consumer, which the last warning in its log names; "
           "or something that is no consumer listened there before, and only a restart helps.";
}

/// The service closes its connection when everything has been delivered.
void Drain::takeLastMessages() {
    const auto deadline = client::Clock::now() + kLastMessagesLimit;
    bool complete = false;
    while (!complete && client::Clock::now() < deadline) {
        wait(deadline);
        complete = consumer.lostConnection();
    }
    while (consumer.receive()) {
        ++thrownAway;
    }
}

} // namespace

std::string drain(const Options& options, zmq::context_t& context, StopSignals& stop) {
    client::checkConnectable(options.address);
    return Drain(options, context, stop).run();
}

} // namespace kaiklactl
