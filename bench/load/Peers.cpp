#include "bench/load/Peers.hpp"

#include "bench/load/Mqtt.hpp"
#include "bench/load/Zmtp.hpp"
#include "platform/PlatformProtocol.hpp"

#include <zmq.hpp>

#include <charconv>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace {

constexpr const char* kTopic = "status";
constexpr int kPatienceMs = 10'000;

std::uint16_t portOf(std::string_view endpoint) {
    const std::string_view digits = endpoint.substr(endpoint.rfind(':') + 1);
    std::uint16_t port = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), port);
    return port;
}

/// A service that publishes: the subject's subscriber, once it has asked for `kind`.
TcpSocket acceptSubscriber(const TcpSocket& listener, unsigned kind) {
    TcpSocket subscriber = listener.accept();
    zmtp::shakeHands(subscriber, "XPUB");
    const std::string wanted = '\x01' + std::to_string(kind);
    while (zmtp::readFrame(subscriber) != wanted) {
    }
    return subscriber;
}

void registerConsumer(zmq::socket_t& commands, std::uint16_t port) {
    constexpr int kAddConsumer = 1;
    commands.send(zmq::buffer(R"({"command_id":)" + std::to_string(kAddConsumer) +
                              R"(,"payload":{"address":"tcp://127.0.0.1:)" + std::to_string(port) +
                              R"("}})"),
                  zmq::send_flags::none);
    zmq::message_t reply;
    if (!commands.recv(reply)) {
        throw std::runtime_error("no answer to a command");
    }
    if (reply.to_string_view().find(R"("result":0)") == std::string_view::npos) {
        throw std::runtime_error("a consumer was refused: " + reply.to_string());
    }
}

TcpSocket addConsumer(zmq::socket_t& commands) {
    const TcpSocket listener = TcpSocket::listenOn(0);
    registerConsumer(commands, listener.port());
    TcpSocket consumer = listener.accept();
    zmtp::shakeHands(consumer, "PULL");
    return consumer;
}

} // namespace

/// The services that have nothing to do but must be there, so that the subject does not spend its
/// time on looking for them.
struct PlatformPeers::IdleServices {
    zmq::context_t context;
    zmq::socket_t systemManager{context, zmq::socket_type::xpub};
    std::thread nmosNode{[this] { answerNmosRequests(); }};

    IdleServices() { systemManager.bind(platform_protocol::kSystemManagerEndpoint); }

    ~IdleServices() {
        systemManager.close();
        context.shutdown();
        nmosNode.join();
    }
    IdleServices(const IdleServices&) = delete;
    IdleServices& operator=(const IdleServices&) = delete;
    IdleServices(IdleServices&&) = delete;
    IdleServices& operator=(IdleServices&&) = delete;

    void answerNmosRequests() {
        try {
            zmq::socket_t node(context, zmq::socket_type::rep);
            node.set(zmq::sockopt::linger, 0);
            node.bind(platform_protocol::kNmosNodeEndpoint);
            for (zmq::message_t request;;) {
                (void)node.recv(request);
                node.send(zmq::str_buffer(R"({"result":0,"payload":{"device":{"id":"load"}}})"),
                          zmq::send_flags::none);
            }
        } catch (const zmq::error_t&) {
            // The context has been shut down.
        }
    }
};

PlatformPeers::PlatformPeers() : idle(std::make_unique<IdleServices>()) {}
PlatformPeers::~PlatformPeers() = default;

Framing PlatformPeers::framing() {
    return {[](unsigned kind, const std::string& notification, const std::string& /*published*/) {
                return zmtp::frame(std::to_string(kind), true) + zmtp::frame(notification);
            },
            [](const std::string& published) { return zmtp::frame(published); }};
}

Peers PlatformPeers::connect(std::size_t consumers, Workload& firstEvent) {
    const TcpSocket sessionManager =
        TcpSocket::listenOn(portOf(platform_protocol::kSessionManagerEndpoint));
    const TcpSocket ptpManagement =
        TcpSocket::listenOn(portOf(platform_protocol::kPtpManagementEndpoint));
    Peers peers;
    peers.sources.push_back(acceptSubscriber(sessionManager, AvmgrPublisher::avmgr_session_status));
    peers.sources.push_back(
        acceptSubscriber(ptpManagement, ZatPmcPublisher::zat_pmc_status_change));

    zmq::socket_t commands(idle->context, zmq::socket_type::req);
    commands.set(zmq::sockopt::linger, 0);
    commands.set(zmq::sockopt::rcvtimeo, kPatienceMs);
    commands.connect(platform_protocol::kCommandEndpoint);
    for (std::size_t i = 0; i < consumers; ++i) {
        peers.consumers.push_back(addConsumer(commands));
    }

    std::string notification;
    std::string delivery;
    firstEvent.produce(0, notification, delivery);
    peers.sessionSource().writeAll(notification);
    for (const TcpSocket& consumer : peers.consumers) {
        while (zmtp::frame(zmtp::readFrame(consumer)) != delivery) {
        }
    }
    return peers;
}

Framing brokerFraming() {
    const auto publish = [](const std::string& published) {
        return mqtt::publishPacket(kTopic, published);
    };
    return {[publish](unsigned /*kind*/, const std::string& /*notification*/,
                      const std::string& published) { return publish(published); },
            publish};
}

Peers connectToBroker(std::uint16_t port, std::size_t consumers, Workload& firstEvent) {
    Peers peers;
    peers.sources.push_back(TcpSocket::connectTo(port));
    mqtt::connect(peers.sources.front(), "publisher");
    for (std::size_t i = 0; i < consumers; ++i) {
        peers.consumers.push_back(TcpSocket::connectTo(port));
        mqtt::connect(peers.consumers.back(), "consumer" + std::to_string(i));
        mqtt::subscribe(peers.consumers.back(), kTopic);
    }
    std::string notification;
    std::string delivery;
    firstEvent.produce(0, notification, delivery);
    peers.sessionSource().writeAll(notification);
    for (const TcpSocket& consumer : peers.consumers) {
        if (mqtt::readPacket(consumer) != delivery) {
            throw std::runtime_error("the broker delivers something else than was published");
        }
    }
    return peers;
}
