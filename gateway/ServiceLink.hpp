#pragma once

#include "gateway/Source.hpp"
#include "tools/client/ServiceConnection.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace gateway {

/// The command interface of the service, from the loop's side: keeps the gateway registered as a
/// consumer, reads the whole status now and then, and tells the source how the service is. One
/// request is out at a time: a service that is held up finds no more than one from here.
class ServiceLink {
public:
    struct Handlers {
        /// A request for the status is about to be sent; what it returns comes back with the
        /// answer.
        std::function<std::uint64_t()> beforeStatus;
        std::function<void(Json::Value& payload, std::uint64_t before)> onStatus;
    };

    /// Throws client::BadEndpoint.
    ServiceLink(boost::asio::io_context& loop, zmq::context_t& context, std::string service,
                std::string consumer, Source& source, Handlers handlers);
    ~ServiceLink();
    ServiceLink(const ServiceLink&) = delete;
    ServiceLink& operator=(const ServiceLink&) = delete;
    ServiceLink(ServiceLink&&) = delete;
    ServiceLink& operator=(ServiceLink&&) = delete;

    /// Called a few times a second: sends what is due and looks at the time.
    void tick();

    /// Reads the whole status as soon as that is possible.
    void resync() { statusWanted = true; }

    /// Takes the registration out; then calls `done`, at the latest after a second.
    void removeRegistration(std::function<void()> done);

private:
    using Command = WebNotifierCommand::webnotifier_command_id_t;
    struct Request {
        Command command;
        Clock::time_point sent;
        std::uint64_t before = 0;
    };

    void connect();
    void disconnect();
    void watch(std::unique_ptr<boost::asio::posix::stream_descriptor>& descriptor);
    void work();
    void takeReplies();
    void takeReply(client::Reply& reply);
    void takeServerList(const Json::Value& payload);
    void takeStatus(client::Reply& reply, const Request& answered);
    void sendWhatIsDue();
    void end();
    void send(Command command, const Json::Value& payload = Json::Value());

    boost::asio::io_context& loop;
    zmq::context_t& context;
    std::string service;
    std::string consumer;
    Source& source;
    Handlers handlers;

    std::optional<client::ServiceConnection> connection;
    std::unique_ptr<boost::asio::posix::stream_descriptor> replyDescriptor;
    std::unique_ptr<boost::asio::posix::stream_descriptor> stateDescriptor;
    bool isConnected = false;
    std::optional<Request> outstanding;

    bool registrationWanted = false;
    bool statusWanted = true;
    Clock::time_point nextCheck;
    Clock::time_point nextStatus;
    Clock::duration lastStatusTime{};

    bool isEnding = false;
    bool isEnded = false;
    std::function<void()> ended;
    Clock::time_point removalDeadline;
};

} // namespace gateway
