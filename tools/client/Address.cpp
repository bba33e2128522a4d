#include "tools/client/Address.hpp"

#include "tools/client/ConnectionMonitor.hpp"
#include "tools/client/Failure.hpp"
#include "tools/client/Waiting.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <list>
#include <memory>
#include <optional>
#include <string_view>

namespace client {
namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr std::string_view kTcp = "tcp://";
constexpr std::string_view kIpc = "ipc://";

struct HostAndPort {
    std::string host;
    std::string port;
};

std::optional<HostAndPort> splitTcp(const std::string& endpoint) {
    if (!endpoint.starts_with(kTcp)) {
        return std::nullopt;
    }
    std::string rest = endpoint.substr(kTcp.size());
    // The address to connect from may stand in front.
    rest.erase(0, rest.find(';') + 1);
    const auto colon = rest.rfind(':');
    if (colon == std::string::npos) {
        return HostAndPort{rest, ""};
    }
    return HostAndPort{rest.substr(0, colon), rest.substr(colon + 1)};
}

bool isPort(const std::string& text) {
    std::uint16_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && last == end && number != 0;
}

enum class Purpose { connect, bind };

void checkTcp(const std::string& address, const HostAndPort& parts, Purpose purpose) {
    if (parts.host.empty() || parts.port.empty()) {
        throw BadEndpoint(address + " has no host and port, as in tcp://192.0.2.10:7000.");
    }
    if (!isPort(parts.port) && !(purpose == Purpose::bind && parts.port == "*")) {
        throw BadEndpoint(address + " has no port from 1 to 65535.");
    }
    if (purpose == Purpose::connect && (parts.host == "*" || parts.host == "0.0.0.0")) {
        throw BadEndpoint(address + " stands for every address of a host; name one of them.");
    }
}

bool isListenedAt(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool accepted =
        ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(descriptor);
    return accepted;
}

void checkIpc(const std::string& address, Purpose purpose) {
    const std::string path = address.substr(kIpc.size());
    if (path.empty()) {
        throw BadEndpoint(address + " names no path.");
    }
    // An abstract name has no file. But the library removes a file of that name when it binds.
    const bool isAbstract = path.front() == '@';
    if (isAbstract && purpose == Purpose::connect) {
        return;
    }
    if (!isAbstract && path.front() != '/') {
        throw BadEndpoint(address +
                          " must name its path from the root, as in ipc:///run/monitor: " +
                          "the service has another working directory.");
    }
    std::error_code error;
    const auto type = std::filesystem::status(path, error).type();
    if (type == std::filesystem::file_type::socket) {
        if (purpose == Purpose::bind && isListenedAt(path)) {
            throw BadEndpoint("cannot listen on " + address + ": another program does.");
        }
    } else if (type != std::filesystem::file_type::not_found) {
        throw BadEndpoint(path + " is there and is no socket.");
    }
}

void check(const std::string& address, Purpose purpose) {
    if (const std::optional<HostAndPort> parts = splitTcp(address)) {
        checkTcp(address, *parts, purpose);
    } else if (address.starts_with(kIpc)) {
        checkIpc(address, purpose);
    } else {
        throw BadEndpoint("\"" + address + "\" is no address: one looks like " +
                          "tcp://192.0.2.10:7000 or ipc:///PATH.");
    }
}

std::string canonical(const std::string& address) {
    std::string text = address;
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : static_cast<char>(c);
    });
    if (const std::optional<HostAndPort> parts = splitTcp(text)) {
        const auto digits = parts->port.find_first_not_of('0');
        return std::string(kTcp) + (parts->host == "localhost" ? kLoopback : parts->host) + ":" +
               (digits == std::string::npos ? "" : parts->port.substr(digits));
    }
    return address;
}

std::optional<sockaddr_in> hostAddress(const std::string& endpoint) {
    const std::optional<HostAndPort> parts = splitTcp(endpoint);
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (!parts || ::getaddrinfo(parts->host.c_str(), nullptr, &wanted, &found) != 0) {
        return std::nullopt;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, ::freeaddrinfo);
    return *reinterpret_cast<const sockaddr_in*>(found->ai_addr);
}

std::string numeric(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    return ::inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
}

/// One connection that is tried.
class Attempt {
public:
    Attempt(zmq::context_t& context, const std::string& address)
        : socket(context, zmq::socket_type::push), monitor(context, socket) {
        socket.set(zmq::sockopt::linger, 0);
        try {
            socket.connect(address);
        } catch (const zmq::error_t&) {
            isDecided = true;
        }
    }

    zmq_pollitem_t item() { return monitor.pollItem(); }
    bool decided() const { return isDecided; }
    Reachability outcome() const { return found; }

    void takeEvent() {
        switch (monitor.take()) {
        case ConnectionMonitor::Event::none:
            break;
        case ConnectionMonitor::Event::accepted:
            found = Reachability::stranger;
            break;
        case ConnectionMonitor::Event::connected:
            found = Reachability::consumer;
            isDecided = true;
            break;
        case ConnectionMonitor::Event::refused:
        case ConnectionMonitor::Event::disconnected:
            isDecided = true;
            break;
        }
    }

private:
    zmq::socket_t socket;
    ConnectionMonitor monitor;
    Reachability found = Reachability::nobody;
    bool isDecided = false;
};

void decide(std::list<Attempt>& attempts, Clock::time_point deadline, StopSignals& stop) {
    for (;;) {
        std::vector<zmq_pollitem_t> items = {pollItem(stop)};
        for (Attempt& attempt : attempts) {
            attempt.takeEvent();
            if (!attempt.decided()) {
                items.push_back(attempt.item());
            }
        }
        if (items.size() == 1 || Clock::now() >= deadline) {
            return;
        }
        waitFor(items, deadline);
        throwIfStopped(stop);
    }
}

} // namespace

void checkConnectable(const std::string& address) {
    check(address, Purpose::connect);
}

void checkBindable(const std::string& endpoint) {
    check(endpoint, Purpose::bind);
}

std::optional<std::string> similarAddress(const std::vector<std::string>& registered,
                                          const std::string& address) {
    const auto found =
        std::find_if(registered.begin(), registered.end(), [&address](const std::string& other) {
            return canonical(other) == canonical(address);
        });
    return found == registered.end() ? std::nullopt : std::optional(*found);
}

std::string withNumericHost(const std::string& address) {
    const std::optional<sockaddr_in> host = hostAddress(address);
    return host ? std::string(kTcp) + numeric(*host) + ":" + splitTcp(address)->port : address;
}

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
    return known ? numeric(own) : kLoopback;
}

bool isOnlyLocal(const std::string& endpoint) {
    if (endpoint.starts_with(kIpc)) {
        return true;
    }
    const std::optional<sockaddr_in> host = hostAddress(endpoint);
    return host && (ntohl(host->sin_addr.s_addr) >> IN_CLASSA_NSHIFT) == IN_LOOPBACKNET;
}

std::vector<Reachability> tryConnecting(zmq::context_t& context,
                                        const std::vector<std::string>& addresses,
                                        std::chrono::milliseconds limit, StopSignals& stop) {
    // Each takes three of the context's 1023 sockets.
    constexpr std::ptrdiff_t kAtOnce = 256;
    std::vector<Reachability> outcomes;
    for (auto next = addresses.begin(); next != addresses.end();) {
        std::list<Attempt> attempts;
        const auto end = next + std::min(kAtOnce, std::distance(next, addresses.end()));
        for (; next != end; ++next) {
            attempts.emplace_back(context, *next);
        }
        decide(attempts, Clock::now() + limit, stop);
        for (const Attempt& attempt : attempts) {
            outcomes.push_back(attempt.outcome());
        }
    }
    return outcomes;
}

} // namespace client
