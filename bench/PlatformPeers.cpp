#include "bench/Peers.hpp"
#include "platform/PlatformProtocol.hpp"

#include <zmq.hpp>

#include <endian.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

// As much of ZeroMQ's wire protocol as the load needs: ZMTP 3.0 (ZeroMQ RFC 23), NULL mechanism.

namespace {

constexpr int kPatienceMs = 10'000;
constexpr unsigned kMore = 0x01;
constexpr unsigned kLong = 0x02;
constexpr unsigned kCommand = 0x04;
constexpr std::string_view kReady = "\x05READY";

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

/// An owned TCP socket on the loopback interface. Every wait ends after ten seconds.
class TcpSocket {
public:
    explicit TcpSocket(int owned) : descriptor(owned) {
        if (owned < 0) {
            fail("waiting for the subject");
        }
    }
    TcpSocket(TcpSocket&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    ~TcpSocket() { ::close(descriptor); }

    int get() const { return descriptor; }

    void readExactly(char* into, std::size_t size) const {
        if (::recv(descriptor, into, size, MSG_WAITALL) != static_cast<ssize_t>(size)) {
            fail("reading from the subject");
        }
    }

    void writeAll(std::string_view bytes) const {
        if (::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(bytes.size())) {
            fail("writing to the subject");
        }
    }

private:
    int descriptor;
};

/// Listens on the port of `endpoint`, or on a free port when that is 0. Accepted connections
/// inherit the options.
TcpSocket listenAt(std::string_view endpoint) {
    const std::string port(endpoint.substr(endpoint.rfind(':') + 1));
    TcpSocket listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    const timeval patience{kPatienceMs / 1000, 0};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int socket = listener.get();
    if (::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0 ||
        ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0 ||
        ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket, SOMAXCONN) != 0) {
        fail("listening on port " + port);
    }
    return listener;
}

std::uint16_t portOf(const TcpSocket& listener) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        fail("getsockname");
    }
    return ntohs(address.sin_port);
}

std::string frame(unsigned flags, std::string_view body) {
    if (body.size() <= std::numeric_limits<unsigned char>::max()) {
        return std::string{static_cast<char>(flags), static_cast<char>(body.size())}.append(body);
    }
    std::string bytes(1, static_cast<char>(flags | kLong));
    const std::uint64_t size = ::htobe64(body.size());
    bytes.append(reinterpret_cast<const char*>(&size), sizeof size);
    return bytes.append(body);
}

/// The next frame; none of those that set a connection up is long.
std::string readFrame(const TcpSocket& connection) {
    std::array<char, 2> head{};
    connection.readExactly(head.data(), head.size());
    if ((static_cast<unsigned>(head[0]) & kLong) != 0) {
        throw std::runtime_error("the subject sends more than a handshake");
    }
    std::string body(static_cast<unsigned char>(head[1]), '\0');
    connection.readExactly(body.data(), body.size());
    return body;
}

/// The subject's connection to `listener`, after the handshake; `socketType` is this end's.
TcpSocket accept(const TcpSocket& listener, std::string_view socketType) {
    TcpSocket connection(::accept(listener.get(), nullptr, nullptr));
    // Signature, version 3.0, mechanism, as-server 0 and filler.
    constexpr std::size_t kGreetingBytes = 64;
    std::string greeting("\xff\0\0\0\0\0\0\0\0\x7f\x03\0NULL", 16);
    greeting.resize(kGreetingBytes);
    connection.writeAll(greeting);
    connection.readExactly(greeting.data(), greeting.size());
    std::string ready(kReady);
    ready += "\x0bSocket-Type" + std::string(3, '\0') + static_cast<char>(socketType.size());
    connection.writeAll(frame(kCommand, ready.append(socketType)));
    if (!readFrame(connection).starts_with(kReady)) {
        throw std::runtime_error("the subject does not speak ZMTP 3");
    }
    return connection;
}

class PlatformPeers : public Peers {
public:
    explicit PlatformPeers(std::size_t count) {
        systemManager.bind(platform_protocol::kSystemManagerEndpoint);
        nmosNode.bind(platform_protocol::kNmosNodeEndpoint);
        commands.set(zmq::sockopt::linger, 0);
        commands.connect(platform_protocol::kCommandEndpoint);
        const TcpSocket sessionManager = listenAt(platform_protocol::kSessionManagerEndpoint);
        const TcpSocket ptpManagement = listenAt(platform_protocol::kPtpManagementEndpoint);
        sessionSource = acceptSubscriber(sessionManager, AvmgrPublisher::avmgr_session_status);
        ptpSource = acceptSubscriber(ptpManagement, ZatPmcPublisher::zat_pmc_status_change);
        while (consumers.size() < count) {
            const TcpSocket listener = listenAt("*:0");
            registerConsumer(portOf(listener));
            consumers.push_back(connections.emplace_back(accept(listener, "PULL")).get());
        }
    }

    std::string cause(unsigned kind, const std::string& notification,
                      const std::string& /*published*/) const override {
        return frame(kMore, std::to_string(kind)) + frame(0, notification);
    }
    std::string delivery(const std::string& published) const override {
        return frame(0, published);
    }

private:
    int acceptSubscriber(const TcpSocket& listener, unsigned kind) {
        const TcpSocket& subscriber = connections.emplace_back(accept(listener, "XPUB"));
        const std::string wanted = '\x01' + std::to_string(kind);
        while (readFrame(subscriber) != wanted) {
        }
        return subscriber.get();
    }

    /// Meanwhile the subject may ask the NMOS node for the device.
    void registerConsumer(std::uint16_t port) {
        commands.send(zmq::buffer(R"({"command_id":1,"payload":{"address":"tcp://127.0.0.1:)" +
                                  std::to_string(port) + R"("}})"),
                      zmq::send_flags::none);
        zmq::message_t message;
        while (!commands.recv(message, zmq::recv_flags::dontwait)) {
            std::array<zmq_pollitem_t, 2> items{
                {{commands.handle(), -1, ZMQ_POLLIN, 0}, {nmosNode.handle(), -1, ZMQ_POLLIN, 0}}};
            if (zmq_poll(items.data(), static_cast<int>(items.size()), kPatienceMs) < 1) {
                throw std::runtime_error("the subject does not answer a command");
            }
            if (nmosNode.recv(message, zmq::recv_flags::dontwait)) {
                nmosNode.send(zmq::str_buffer(R"({"result":0,"payload":{"device":{"id":"load"}}})"),
                              zmq::send_flags::none);
            }
        }
        if (message.to_string_view().find(R"("result":0)") == std::string_view::npos) {
            throw std::runtime_error("a consumer was refused: " + message.to_string());
        }
    }

    // The system manager and the NMOS node only have to be there, so that the subject does not
    // look for them. The library may serve them: while anything is measured they are idle.
    zmq::context_t context;
    zmq::socket_t systemManager{context, zmq::socket_type::xpub};
    zmq::socket_t nmosNode{context, zmq::socket_type::rep};
    zmq::socket_t commands{context, zmq::socket_type::req};
    std::vector<TcpSocket> connections;
};

} // namespace

std::unique_ptr<Peers> playPlatform(std::size_t consumers) {
    return std::make_unique<PlatformPeers>(consumers);
}
