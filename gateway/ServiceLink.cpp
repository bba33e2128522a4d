#include "gateway/ServiceLink.hpp"

#include "platform/api/Logger.hpp"
#include "tools/client/Failure.hpp"

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

constexpr std::chrono::seconds kCheckInterval{2};
constexpr std::chrono::seconds kStatusInterval{5};
/// Removed sessions show at the latest after this time, however large the document is.
constexpr std::chrono::seconds kLongestStatusInterval{60};
/// The service spends at most one part in this many on writing the whole status for the gateway.
constexpr int kStatusShare = 100;
constexpr std::chrono::seconds kRemovalLimit{1};

int descriptorOf(const zmq_pollitem_t& item) {
    int descriptor = -1;
    std::size_t size = sizeof descriptor;
    if (zmq_getsockopt(item.socket, ZMQ_FD, &descriptor, &size) != 0) {
        throw zmq::error_t();
    }
    return descriptor;
}

} // namespace

ServiceLink::ServiceLink(boost::asio::io_context& ioContext, zmq::context_t& zmqContext,
                         std::string serviceEndpoint, std::string consumerAddress,
                         Source& knownSource, Handlers eventHandlers)
    : loop(ioContext), context(zmqContext), service(std::move(serviceEndpoint)),
      consumer(std::move(consumerAddress)), source(knownSource),
      handlers(std::move(eventHandlers)) {
    connect();
}

ServiceLink::~ServiceLink() {
    disconnect();
}

void ServiceLink::connect() {
    isConnected = false;
    outstanding.reset();
    nextCheck = Clock::time_point();
    connection.emplace(context, service);
    using boost::asio::posix::stream_descriptor;
    replyDescriptor =
        std::make_unique<stream_descriptor>(loop, descriptorOf(connection->replyItem()));
    stateDescriptor =
        std::make_unique<stream_descriptor>(loop, descriptorOf(connection->stateItem()));
    watch(replyDescriptor);
    watch(stateDescriptor);
}

void ServiceLink::disconnect() {
    // The descriptors belong to the library.
    for (auto* const descriptor : {&replyDescriptor, &stateDescriptor}) {
        if (*descriptor) {
            (void)(*descriptor)->release();
            descriptor->reset();
        }
    }
    connection.reset();
}

/// The library's descriptors tell that something has happened, once. What it was, work() finds.
void ServiceLink::watch(std::unique_ptr<boost::asio::posix::stream_descriptor>& descriptor) {
    descriptor->async_wait(boost::asio::posix::stream_descriptor::wait_read,
                           [this, &descriptor, watched = descriptor.get()](const auto& error) {
                               if (error || descriptor.get() != watched) {
                                   return;
                               }
                               watch(descriptor);
                               work();
                           });
}

void ServiceLink::tick() {
    work();
    if (isEnding && Clock::now() >= removalDeadline) {
        end();
    }
}

void ServiceLink::work() {
    using State = client::ServiceConnection::State;
    takeReplies();
    const State state = connection->update();
    isConnected = state == State::connected;
    if (state == State::lost) {
        disconnect();
        connect();
    } else if (isConnected && !outstanding && !isEnded) {
        sendWhatIsDue();
        // The library tells of an answer that is here already through no descriptor any more.
        takeReplies();
    }
    std::optional<Clock::duration> waiting;
    if (isConnected) {
        waiting = outstanding ? Clock::now() - outstanding->sent : Clock::duration::zero();
    }
    source.update(waiting);
}

void ServiceLink::takeReplies() {
    try {
        while (std::optional<client::Reply> reply = connection->receive()) {
            takeReply(*reply);
        }
    } catch (const client::Failure& failure) {
        Logger::log(Logger::LOG_LEVEL_ERR, "%s", failure.what());
        outstanding.reset();
    } catch (const Json::Exception& error) {
        Logger::log(Logger::LOG_LEVEL_ERR, "an answer of the service cannot be read: %s",
                    error.what());
    }
}

void ServiceLink::takeReply(client::Reply& reply) {
    if (!outstanding) {
        return;
    }
    const Request answered = *std::exchange(outstanding, std::nullopt);
    source.answered();
    if (reply.result < 0) {
        Logger::log(Logger::LOG_LEVEL_ERR, "the service refuses command %u: %s", answered.command,
                    reply.error.c_str());
    }
    switch (answered.command) {
    case WebNotifierCommand::get_server_list:
        takeServerList(reply.payload);
        break;
    case WebNotifierCommand::get_device_status:
        takeStatus(reply, answered);
        break;
    case WebNotifierCommand::remove_remote_info_consumer:
        end();
        break;
    default:
        break;
    }
}

void ServiceLink::takeServerList(const Json::Value& payload) {
    const auto registered = client::registeredConsumers(payload);
    registrationWanted =
        std::find(registered.begin(), registered.end(), consumer) == registered.end();
}

void ServiceLink::takeStatus(client::Reply& reply, const Request& answered) {
    const Clock::time_point now = Clock::now();
    // A single slow answer tells of a service that was busy with something else.
    const Clock::duration took = now - answered.sent;
    const Clock::duration typical = std::min(took, std::exchange(lastStatusTime, took));
    nextStatus = now + std::clamp<Clock::duration>(typical * kStatusShare, kStatusInterval,
                                                   kLongestStatusInterval);
    if (reply.result >= 0) {
        handlers.onStatus(reply.payload, answered.before);
    }
}

void ServiceLink::sendWhatIsDue() {
    const Clock::time_point now = Clock::now();
    if (isEnding) {
        send(WebNotifierCommand::remove_remote_info_consumer, client::consumerPayload(consumer));
    } else if (registrationWanted) {
        registrationWanted = false;
        send(WebNotifierCommand::add_remote_info_consumer, client::consumerPayload(consumer));
        Logger::log(Logger::LOG_LEVEL_NTF, "registering %s with the service", consumer.c_str());
    } else if (now >= nextCheck) {
        nextCheck = now + kCheckInterval;
        send(WebNotifierCommand::get_server_list);
    } else if (statusWanted || now >= nextStatus) {
        statusWanted = false;
        send(WebNotifierCommand::get_device_status);
    }
}

void ServiceLink::send(Command command, const Json::Value& payload) {
    const bool isStatus = command == WebNotifierCommand::get_device_status;
    outstanding = Request{command, Clock::now(), isStatus ? handlers.beforeStatus() : 0};
    connection->send(command, payload);
}

void ServiceLink::removeRegistration(std::function<void()> done) {
    isEnding = true;
    ended = std::move(done);
    removalDeadline = Clock::now() + kRemovalLimit;
    work();
}

void ServiceLink::end() {
    if (!std::exchange(isEnded, true)) {
        ended();
    }
}

} // namespace gateway
