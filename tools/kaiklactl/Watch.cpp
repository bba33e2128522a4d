#include "tools/kaiklactl/Watch.hpp"

#include "platform/records/IpcMsg.hpp"
#include "platform/records/JsonText.hpp"
#include "tools/client/Address.hpp"
#include "tools/client/Waiting.hpp"
#include "tools/kaiklactl/StatusReport.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <vector>

namespace kaiklactl {
namespace {

using std::chrono::milliseconds;

/// The service sends the whole status before it answers the registration. Connecting takes a moment
/// longer.
constexpr milliseconds kFirstMessageLimit{1000};
/// How long the messages sent before a removal may take to arrive.
constexpr milliseconds kDrainLimit{300};
/// How long the service may take to remove this consumer at its end. A blocked service removes it
/// later; the watch does not wait for that.
constexpr milliseconds kRemovalLimit{500};

/// How long one turn of the loop takes messages: a flood must not keep a signal waiting.
constexpr milliseconds kTurnLimit{50};

std::string timeOfDay(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    const auto sinceEpoch = std::chrono::duration_cast<milliseconds>(time.time_since_epoch());
    const long long fraction = sinceEpoch.count() % std::milli::den;
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%H:%M:%S.") << std::setfill('0') << std::setw(3) << fraction;
    return text.str();
}

std::string column(const std::string& kind) {
    constexpr std::size_t kWidth = sizeof("status-session") - 1;
    return kind + std::string(kWidth - std::min(kWidth, kind.size()), ' ');
}

/// One line about a message that came at `time`: the local time of day, the kind and what it
/// changed. It is printable, whatever the frame holds.
std::string messageLine(std::string_view frame, std::chrono::system_clock::time_point time,
                        StatusHistory& history) {
    std::string kind = "malformed";
    std::string words;
    try {
        Json::Value json = client::readObject(frame);
        IpcMsg message;
        message.Deserialize(json);
        words = history.take(message);
        kind = message.commandName;
    } catch (const Json::Exception& error) {
        words = std::string("this message cannot be read: ") + error.what();
    }
    return printable(timeOfDay(time) + "  " + column(kind) + "  " + words).text;
}

} // namespace

Watch::Watch(const Options& watchOptions, zmq::context_t& zmqContext, StopSignals& stopSignals)
    : options(watchOptions), service{options.server, options.timeout}, context(zmqContext),
      stop(stopSignals), output(STDOUT_FILENO),
      consumer(context,
               options.bind.empty() ? client::ListeningConsumer::usualEndpoints(options.server)
                                    : std::vector{options.bind},
               options.server),
      address(options.advertised.empty() ? consumer.address() : options.advertised) {
    client::checkConnectable(address);
}

ExitStatus Watch::run() {
    connect();
    enter(Phase::connecting, service.timeout);
    while (phase != Phase::ended) {
        wait();
        takeMessages();
        takeReplies();
        takeConnectionState();
        takeOutputState();
        takeSignal();
        takeDeadline();
    }
    noteLeftOut();
    output.check();
    return status;
}

void Watch::enter(Phase next, std::optional<milliseconds> limit) {
    phase = next;
    deadline = limit ? std::optional(client::Clock::now() + *limit) : std::nullopt;
}

void Watch::connect() {
    connection.reset();
    connection = std::make_unique<client::ServiceConnection>(context, service.endpoint);
}

void Watch::wait() {
    std::array<zmq_pollitem_t, 6> items = {consumer.messageItem(),  consumer.stateItem(),
                                           connection->replyItem(), connection->stateItem(),
                                           client::pollItem(stop),  output.pollItem()};
    // A closed output would be ready again and again until the end.
    client::waitFor({items.data(), items.size() - (output.closed() ? 1 : 0)}, deadline);
    if (!output.closed()) {
        output.proceed(items.back().revents);
    }
}

void Watch::takeOutputState() {
    if (output.closed() && phase < Phase::removing) {
        finish();
    }
    if (phase == Phase::flushing && output.idle()) {
        enter(Phase::ended);
    }
    if (output.idle()) {
        noteLeftOut();
    }
}

void Watch::noteLeftOut() {
    if (const std::size_t leftOut = output.takeLeftOut(); leftOut > 0) {
        notice(counted(leftOut, "message") + " left out: the output was not read.");
    }
}

bool Watch::takeMessages() {
    const auto end = client::Clock::now() + kTurnLimit;
    do {
        const std::optional<std::string> frame = consumer.receive();
        if (!frame) {
            return false;
        }
        if (phase < Phase::registering && !wasRegistered) {
            throwAway();
            continue;
        }
        hasMessage = true;
        if (phase == Phase::watching) {
            deadline.reset();
        }
        if (!hasEnough()) {
            printMessage(*frame);
        }
    } while (client::Clock::now() < end);
    return true;
}

/// A message for a consumer that had this address before.
void Watch::throwAway() {
    ++thrownAway;
    // A service that sends is not stuck: its reply comes later.
    if (!leftBehind) {
        enter(phase, service.timeout);
    }
}

void Watch::takeAllMessages() {
    // A second signal ends the watch at once.
    while (takeMessages() && !stop.arrived()) {
    }
}

void Watch::printMessage(const std::string& frame) {
    if (!options.json) {
        output.add(messageLine(frame, std::chrono::system_clock::now(), history));
    } else {
        try {
            output.add(toCompactJson(client::readObject(frame)));
        } catch (const Json::Exception& error) {
            notice(std::string("a message is left out: it is ") + error.what() + ".");
            return;
        }
    }
    ++messageCount;
    if (hasEnough() && phase < Phase::removing) {
        finish();
    }
}

void Watch::takeReplies() {
    while (const std::optional<client::Reply> reply = connection->receive()) {
        takeReply(*reply);
    }
}

void Watch::takeReply(const client::Reply& reply) {
    if (phase == Phase::clearing) {
        takeClearingReply(reply);
    } else if (phase == Phase::registering &&
               reply.command == WebNotifierCommand::add_remote_info_consumer) {
        if (reply.result < 0) {
            notice(reply.error);
            status = ExitStatus::refused;
            enter(Phase::ended);
            return;
        }
        notice(wasRegistered ? "the service is back; " + address + " is registered again."
                             : address + " is registered with " + service.endpoint + ".");
        wasRegistered = true;
        enter(Phase::watching, hasMessage ? std::nullopt : std::optional(kFirstMessageLimit));
    } else if (phase == Phase::checking && reply.command == WebNotifierCommand::get_server_list) {
        const std::vector<std::string> consumers = client::registeredConsumers(reply.payload);
        if (std::find(consumers.begin(), consumers.end(), address) != consumers.end()) {
            enter(Phase::watching);
            return;
        }
        notice("somebody else has removed " + address + " from the service.");
        status = ExitStatus::refused;
        beginFlushing();
    } else if (phase == Phase::removing &&
               reply.command == WebNotifierCommand::remove_remote_info_consumer) {
        enter(Phase::draining, kDrainLimit);
        if (everythingHasCome) {
            takeAllMessages();
            beginFlushing();
        }
    }
}

/// A killed watch may have left this address registered. It is removed first, so that its old
/// messages do not look like news.
void Watch::takeClearingReply(const client::Reply& reply) {
    if (reply.command == WebNotifierCommand::get_server_list) {
        const std::vector<std::string> consumers = client::registeredConsumers(reply.payload);
        if (std::find(consumers.begin(), consumers.end(), address) == consumers.end()) {
            registerConsumer();
            return;
        }
        connection->send(WebNotifierCommand::remove_remote_info_consumer,
                         client::consumerPayload(address));
        everythingHasCome = false;
    } else {
        leftBehind = true;
        enter(Phase::clearing, everythingHasCome ? milliseconds(0) : kDrainLimit);
    }
}

void Watch::registerConsumer() {
    if (leftBehind) {
        takeAllMessages();
        notice(address + " was registered already; " + counted(thrownAway, "old message") +
               " thrown away.");
    }
    leftBehind = false;
    thrownAway = 0;
    hasMessage = false;
    connection->send(WebNotifierCommand::add_remote_info_consumer,
                     client::consumerPayload(address));
    enter(Phase::registering, wasRegistered ? std::nullopt : std::optional(service.timeout));
}

void Watch::takeConnectionState() {
    // The service closes its connection to a removed consumer after the last message, and to every
    // consumer when it ends.
    if (consumer.lostConnection()) {
        everythingHasCome = true;
        if (phase == Phase::watching) {
            connection->send(WebNotifierCommand::get_server_list);
            enter(Phase::checking, service.timeout);
        } else if (phase == Phase::draining) {
            takeAllMessages();
            beginFlushing();
        } else if (phase == Phase::clearing && leftBehind) {
            registerConsumer();
        }
    }
    switch (connection->update()) {
    case client::ServiceConnection::State::connected:
        if (phase == Phase::connecting && wasRegistered) {
            registerConsumer();
        } else if (phase == Phase::connecting) {
            connection->send(WebNotifierCommand::get_server_list);
            enter(Phase::clearing, service.timeout);
        }
        break;
    case client::ServiceConnection::State::lost:
        if (phase == Phase::removing || phase == Phase::draining) {
            // The registration has gone with the service.
            beginFlushing();
        } else if (phase != Phase::flushing && phase != Phase::ended) {
            notice("the service is gone; waiting for it to come back.");
            history.forget();
            connect();
            enter(Phase::connecting);
        }
        break;
    default:
        break;
    }
}

void Watch::takeSignal() {
    if (stop.take() != 0) {
        finish();
    }
}

void Watch::takeDeadline() {
    if (!deadline || client::Clock::now() < *deadline) {
        return;
    }
    switch (phase) {
    case Phase::clearing:
        if (leftBehind) {
            registerConsumer();
            break;
        }
        failWithoutAnswer();
        break;
    case Phase::registering:
        // The service may still carry out the registration, after this consumer has ended.
        connection->send(WebNotifierCommand::remove_remote_info_consumer,
                         client::consumerPayload(address));
        [[fallthrough]];
    case Phase::connecting:
        failWithoutAnswer();
        break;
    case Phase::watching:
        notice("nothing has come yet; \"kaiklactl doctor " + address + "\" may tell why.");
        deadline.reset();
        break;
    case Phase::checking:
        enter(Phase::watching);
        break;
    case Phase::removing:
        notice("the service is busy; it removes " + address +
               " when it is free again. Until then " +
               "it may block the service: \"kaiklactl drain " + address + "\".");
        status = ExitStatus::noAnswer;
        beginFlushing();
        break;
    case Phase::draining:
        beginFlushing();
        break;
    default:
        enter(Phase::ended);
        break;
    }
}

void Watch::failWithoutAnswer() {
    notice(client::noAnswerSentence(service, connection->update()));
    status = ExitStatus::noAnswer;
    enter(Phase::ended);
}

void Watch::finish() {
    switch (phase) {
    case Phase::connecting:
    case Phase::clearing:
        beginFlushing();
        break;
    case Phase::registering:
    case Phase::watching:
    case Phase::checking:
        connection->send(WebNotifierCommand::remove_remote_info_consumer,
                         client::consumerPayload(address));
        everythingHasCome = false;
        enter(Phase::removing, std::min(service.timeout, kRemovalLimit));
        break;
    default:
        // A second signal ends it at once.
        enter(Phase::ended);
        break;
    }
}

void Watch::beginFlushing() {
    if (output.idle()) {
        enter(Phase::ended);
        return;
    }
    // --count promises that many lines. Otherwise a reader that has stopped is not waited for.
    enter(Phase::flushing, hasEnough() ? std::nullopt : std::optional(kDrainLimit));
}

bool Watch::hasEnough() const {
    return options.count != 0 && messageCount >= options.count;
}

} // namespace kaiklactl
