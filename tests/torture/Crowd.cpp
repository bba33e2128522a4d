#include "handler/WebNotifierCommand.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/api/ResultCode.hpp"
#include "tests/support/Consumer.hpp"
#include "tests/torture/Checks.hpp"
#include "tests/torture/Notifier.hpp"
#include "tests/torture/Service.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <list>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

/// A client that sends one request after the other, each when the last one has been answered.
class Client {
public:
    Client(zmq::context_t& context) : socket(context, zmq::socket_type::req) {
        socket.set(zmq::sockopt::linger, 0);
        socket.connect(platform_protocol::kCommandEndpoint);
    }
    virtual ~Client() = default;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    Client(Client&&) = delete;
    Client& operator=(Client&&) = delete;

    zmq_pollitem_t pollItem() { return {socket.handle(), -1, ZMQ_POLLIN, 0}; }

    void sendNext() {
        sentAt = Clock::now();
        send();
    }

    /// Takes the answer in; returns how long it took.
    std::chrono::microseconds receive() {
        zmq::message_t reply;
        (void)socket.recv(reply);
        require(!reply.more(), "an answer is one frame");
        ++answers;
        check(parseJson(reply.to_string()));
        return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - sentAt);
    }

    std::int64_t answers = 0;

protected:
    virtual void send() = 0;
    virtual void check(const Json::Value& reply) = 0;

    zmq::socket_t socket;

private:
    Clock::time_point sentAt;
};

/// Registers itself, looks itself up, reads the status and leaves again, over and over.
class Regular : public Client {
public:
    explicit Regular(zmq::context_t& context) : Client(context), consumer(context) {}

    /// Reads what it has been told, so that its queue never fills.
    void readMail() {
        while (consumer.receiveText(std::chrono::milliseconds(0))) {
        }
    }

protected:
    void send() override {
        const auto& [command, name, result] = kRound[step];
        socket.send(zmq::buffer(R"({"command_id":)" + std::to_string(command) +
                                R"(,"payload":{"address":")" + consumer.address() + R"("}})"),
                    zmq::send_flags::none);
    }

    void check(const Json::Value& reply) override {
        const auto& [command, name, result] = kRound[step];
        require(reply["command_id"].asUInt() == command && reply["command_name"] == name &&
                    reply["result"].asInt() == result,
                "a well-formed request gets its own answer");
        const Json::Value& payload = reply["payload"];
        if (command == WebNotifierCommand::get_device_status) {
            require(payload["status"]["device_id"] == "device", "the status is the device's");
        } else if (command == WebNotifierCommand::get_server_list) {
            const Json::Value& remote = payload["remote"];
            require(std::count(remote.begin(), remote.end(), Json::Value(consumer.address())) == 1,
                    "the list holds who has registered, once");
        }
        step = (step + 1) % kRound.size();
    }

private:
    struct Step {
        unsigned command;
        const char* name;
        int result;
    };
    static constexpr unsigned kUnknownCommand = 4;
    static constexpr std::array<Step, 5> kRound = {{
        {WebNotifierCommand::add_remote_info_consumer, "Add remote info consumer", 0},
        {WebNotifierCommand::get_server_list, "GET Server list", 0},
        {WebNotifierCommand::get_device_status, "GET device status", 0},
        {WebNotifierCommand::remove_remote_info_consumer, "Remove remote info consumer", 0},
        {kUnknownCommand, "not recognized", result_code::kUnknownId},
    }};

    Consumer consumer;
    std::size_t step = 0;
};

/// Sends what no request is; each has to be answered with -101.
class Vandal : public Client {
public:
    Vandal(zmq::context_t& context, unsigned seed) : Client(context), generator(seed) {}

protected:
    void send() override {
        switch (below(8)) {
        case 0:
            return sendText(randomBytes(1 + below(300)));
        case 1:
            return sendText("");
        case 2:
            socket.send(zmq::buffer(std::string("{\"command_id\":0}")), zmq::send_flags::sndmore);
            return sendText(randomBytes(below(50)));
        case 3:
            return sendText(std::string(static_cast<std::size_t>(1000 + below(100'000)), '['));
        case 4:
            return sendText(R"({"command_id":0,"payload":{"address":")");
        case 5:
            return sendText(R"({"command_id":)" + std::to_string(-1 - below(1000)) + "}");
        case 6:
            return sendText(R"({"command_id":1,"payload":{"address":{}}})");
        default:
            return sendText(std::string(platform_protocol::kMaxFrameBytes + 1, 'x'));
        }
    }

    void check(const Json::Value& reply) override {
        require(reply["result"].asInt() == platform_protocol::kErrorMalformed,
                "garbage is answered with -101");
    }

private:
    void sendText(const std::string& text) {
        socket.send(zmq::buffer(text), zmq::send_flags::none);
    }
    int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(generator); }
    std::string randomBytes(int count) {
        std::string bytes(static_cast<std::size_t>(count), '\0');
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(below(256)); });
        return bytes;
    }

    std::mt19937 generator;
};

/// Connects, sends bytes that are no ZeroMQ at all, and hangs up as soon as the service answers.
class Stranger {
public:
    Stranger(zmq::context_t& context, unsigned seed) : zmqContext(&context), generator(seed) {
        connect();
    }

    zmq_pollitem_t pollItem() { return {socket->handle(), -1, ZMQ_POLLIN, 0}; }

    void receive() {
        zmq::message_t connection;
        zmq::message_t bytes;
        (void)socket->recv(connection);
        (void)socket->recv(bytes);
        if (!bytes.empty()) {
            ++visits;
            connect();
            return;
        }
        // An empty message tells that the connection stands, or no longer does.
        std::string garbage(1 + generator() % 200, '\0');
        std::generate(garbage.begin(), garbage.end(),
                      [this] { return static_cast<char>(generator()); });
        try {
            socket->send(connection, zmq::send_flags::sndmore);
            socket->send(zmq::buffer(garbage), zmq::send_flags::none);
        } catch (const zmq::error_t&) {
            connect();
        }
    }

    std::int64_t visits = 0;

private:
    void connect() {
        socket.emplace(*zmqContext, zmq::socket_type::stream);
        socket->set(zmq::sockopt::linger, 0);
        socket->connect(platform_protocol::kCommandEndpoint);
    }

    zmq::context_t* zmqContext;
    std::optional<zmq::socket_t> socket;
    std::mt19937 generator;
};

template <typename Members, typename Count>
std::int64_t total(const Members& members, Count count) {
    std::int64_t sum = 0;
    for (const auto& member : members) {
        sum += member.*count;
    }
    return sum;
}

} // namespace

void crowd(const Report& report, Form form) {
    const std::chrono::seconds span(form == Form::full ? 30 : 2);
    constexpr unsigned kRegulars = 25;
    constexpr unsigned kVandals = 20;
    constexpr unsigned kStrangers = 5;
    zmq::context_t context;
    Service service(context, {.arguments = {}, .launcher = {}, .withoutStandardError = true});
    Notifier sessionManager(context, platform_protocol::kSessionManagerEndpoint);
    sessionManager.waitForSubscriptions(3);
    sessionManager.send(AvmgrPublisher::avmgr_session_status, sessionStatus(1, "nmos"));
    service.waitForDocument(
        [](const Json::Value& document) { return document["device_id"] == "device"; });

    std::list<Regular> regulars;
    std::list<Vandal> vandals;
    std::list<Stranger> strangers;
    std::vector<zmq_pollitem_t> items;
    std::vector<Client*> clients;
    for (unsigned i = 0; i < kRegulars; ++i) {
        clients.push_back(&regulars.emplace_back(context));
    }
    for (unsigned i = 0; i < kVandals; ++i) {
        clients.push_back(&vandals.emplace_back(context, i));
    }
    for (Client* client : clients) {
        client->sendNext();
    }
    // The clients are in before the strangers rush: a connection that the kernel drops for want of
    // room in the queue of new ones is tried again only half a minute later.
    constexpr long kPromisedMs = 1000;
    for (Client* client : clients) {
        zmq_pollitem_t item = client->pollItem();
        require(zmq_poll(&item, 1, kPromisedMs) > 0, "the first request of everyone is answered");
        client->receive();
        client->sendNext();
    }
    for (unsigned i = 0; i < kStrangers; ++i) {
        strangers.emplace_back(context, i);
    }

    std::chrono::microseconds slowest{0};
    for (const auto end = Clock::now() + span; Clock::now() < end;) {
        items.clear();
        for (Client* client : clients) {
            items.push_back(client->pollItem());
        }
        for (Stranger& stranger : strangers) {
            items.push_back(stranger.pollItem());
        }
        require(zmq::poll(items.data(), items.size(), std::chrono::milliseconds(kPromisedMs)) > 0,
                "the crowd is answered");
        for (std::size_t i = 0; i < clients.size(); ++i) {
            if (items[i].revents != 0) {
                slowest = std::max(slowest, clients[i]->receive());
                clients[i]->sendNext();
            }
        }
        std::size_t next = clients.size();
        for (Stranger& stranger : strangers) {
            if (items[next++].revents != 0) {
                stranger.receive();
            }
        }
        for (Regular& regular : regulars) {
            regular.readMail();
        }
    }

    for (const Client* client : clients) {
        require(client->answers > 0, "nobody in the crowd is passed over");
    }
    report.figure("clients at once, half of them with garbage",
                  std::int64_t{kRegulars + kVandals + kStrangers});
    report.figure("well-formed requests, all answered correctly",
                  total(regulars, &Regular::answers));
    report.figure("malformed requests, all answered with -101", total(vandals, &Vandal::answers));
    report.figure("connections that spoke no ZeroMQ", total(strangers, &Stranger::visits));
    report.figure("slowest answer", static_cast<double>(slowest.count()) / 1000, "ms");
    report.figure("stop", service.stop().count(), "ms");
}
