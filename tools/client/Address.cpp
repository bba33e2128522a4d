#include "tools/client/Address.hpp"

#include "tools/client/ConnectionMonitor.hpp"
#include "tools/client/Waiting.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <optional>
#include <string_view>

namespace client {
namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr std::string_view kTcp = "tcp://";

/// The host of the endpoint as an address, without its port.
std::optional<sockaddr_in> hostAddress(const std::string& endpoint) {
    const auto colon = endpoint.rfind(':');
    if (endpoint.compare(0, kTcp.size(), kTcp) != 0 || colon < kTcp.size()) {
        return std::nullopt;
    }
    const std::string host = endpoint.substr(kTcp.size(), colon - kTcp.size());
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &wanted, &found) != 0) {
        return std::nullopt;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, ::freeaddrinfo);
    return *reinterpret_cast<const sockaddr_in*>(found->ai_addr);
}

} // namespace

std::string ownAddressTowards(const std::string& endpoint) {
    std::optional<sockaddr_in> host = hostAddress(endpoint);
    if (!host) {
        return kLoopback;
    }
    // Connecting a datagram socket only makes the kernel choose a route. Any port but 0 does.
    constexpr std::uint16_t kDiscardPort = 9;
    host->sin_port = htons(kDiscardPort);
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in own{};
    socklen_t size = sizeof own;
    const bool known =
        ::connect(descriptor, reinterpret_cast<const sockaddr*>(&*host), sizeof *host) == 0 &&
        ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size) == 0;
    ::close(descriptor);
    std::array<char, INET_ADDRSTRLEN> text{};
    return known && ::inet_ntop(AF_INET, &own.sin_addr, text.data(), text.size()) != nullptr
               ? text.data()
               : kLoopback;
}

bool isLoopback(const std::string& endpoint) {
    const std::optional<sockaddr_in> host = hostAddress(endpoint);
    return host && (ntohl(host->sin_addr.s_addr) >> IN_CLASSA_NSHIFT) == IN_LOOPBACKNET;
}

Reachability tryConnecting(zmq::context_t& context, const std::string& address,
                           std::chrono::milliseconds limit, StopSignals& stop) {
    const auto deadline = Clock::now() + limit;
    zmq::socket_t socket(context, zmq::socket_type::push);
    socket.set(zmq::sockopt::linger, 0);
    ConnectionMonitor monitor(context, socket);
    try {
        socket.connect(address);
    } catch (const zmq::error_t&) {
        return Reachability::invalid;
    }
    Reachability found = Reachability::nobody;
    std::array<zmq_pollitem_t, 2> items = {monitor.pollItem(), pollItem(stop)};
    while (Clock::now() < deadline) {
        waitFor(items, deadline);
        throwIfStopped(stop);
        switch (monitor.take()) {
        case ConnectionMonitor::Event::none:
            break;
        case ConnectionMonitor::Event::accepted:
            found = Reachability::stranger;
            break;
        case ConnectionMonitor::Event::connected:
            return Reachability::consumer;
        case ConnectionMonitor::Event::refused:
        case ConnectionMonitor::Event::disconnected:
            return found;
        }
    }
    return found;
}

} // namespace client
