#include "tools/client/ListeningConsumer.hpp"

#include "tools/client/Address.hpp"
#include "tools/client/Failure.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string_view>

namespace client {
namespace {

/// Far above any status document. Bounds what one frame of a stranger can take.
constexpr std::int64_t kMaxMessageBytes = std::int64_t{64} * 1024 * 1024;

constexpr const char* kAnyAddress = "tcp://0.0.0.0:";

constexpr int kFirstPort = 5591;
constexpr int kLastPort = 5599;

std::string whyNotBound(const std::string& endpoint, const zmq::error_t& error, bool isLastOfMany) {
    const std::string start = "cannot listen on " + endpoint + ": ";
    switch (error.num()) {
    case EADDRINUSE:
        return start + "another program does; end it first." +
               (isLastOfMany ? " The ports before it are taken, too; choose one with --bind." : "");
    case EADDRNOTAVAIL:
    case ENODEV:
        return start + "this host does not have that address; run this on the host that has it.";
    default:
        return start + error.what() + ".";
    }
}

void bindFirst(zmq::socket_t& socket, const std::vector<std::string>& endpoints) {
    for (const std::string& endpoint : endpoints) {
        try {
            checkBindable(endpoint);
            socket.bind(endpoint);
            return;
        } catch (const zmq::error_t& error) {
            if (error.num() != EADDRINUSE || &endpoint == &endpoints.back()) {
                throw BadEndpoint(whyNotBound(endpoint, error, endpoints.size() > 1));
            }
        }
    }
}

} // namespace

ListeningConsumer::ListeningConsumer(zmq::context_t& context,
                                     const std::vector<std::string>& endpoints,
                                     const std::string& server)
    : socket(context, zmq::socket_type::pull) {
    socket.set(zmq::sockopt::linger, 0);
    socket.set(zmq::sockopt::maxmsgsize, kMaxMessageBytes);
    monitor.emplace(context, socket);
    bindFirst(socket, endpoints);
    ownAddress = socket.get(zmq::sockopt::last_endpoint);
    // Nobody can connect to "any address".
    if (const std::string any = kAnyAddress; ownAddress.starts_with(any)) {
        ownAddress = "tcp://" + ownAddressTowards(server) + ":" + ownAddress.substr(any.size());
    }
}

ListeningConsumer::~ListeningConsumer() {
    // Only a path from the root is a file; the library leaves it behind.
    if (constexpr std::string_view kIpcFile = "ipc:///"; ownAddress.starts_with(kIpcFile)) {
        ::unlink(ownAddress.c_str() + kIpcFile.size() - 1);
    }
}

std::vector<std::string> ListeningConsumer::usualEndpoints(const std::string& server) {
    const std::string start = "tcp://" + ownAddressTowards(server) + ":";
    std::vector<std::string> endpoints;
    for (int port = kFirstPort; port <= kLastPort; ++port) {
        endpoints.push_back(start + std::to_string(port));
    }
    return endpoints;
}

std::optional<std::string> ListeningConsumer::receive() {
    zmq::message_t frame;
    if (!socket.recv(frame, zmq::recv_flags::dontwait)) {
        return std::nullopt;
    }
    if (!frame.more()) {
        return frame.to_string();
    }
    while (frame.more()) {
        (void)socket.recv(frame);
    }
    return "";
}

bool ListeningConsumer::lostConnection() {
    bool lost = false;
    for (;;) {
        switch (monitor->take()) {
        case ConnectionMonitor::Event::none:
            return lost;
        case ConnectionMonitor::Event::disconnected:
            lost = true;
            break;
        default:
            break;
        }
    }
}

} // namespace client
