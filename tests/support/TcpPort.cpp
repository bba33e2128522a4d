#include "tests/support/TcpPort.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

namespace {

sockaddr* generic(sockaddr_in& address) {
    return static_cast<sockaddr*>(static_cast<void*>(&address));
}

/// Takes a port for a moment, any one if it is 0. Returns the port, 0 when somebody listens there.
std::uint16_t tryPort(std::uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const bool taken = ::bind(socket, generic(address), size) != 0 ||
                       ::getsockname(socket, generic(address), &size) != 0;
    ::close(socket);
    return taken ? std::uint16_t{0} : ntohs(address.sin_port);
}

} // namespace

std::string freeEndpoint() {
    return "tcp://127.0.0.1:" + std::to_string(tryPort(0));
}

void waitUntilFree(const std::string& endpoint) {
    const char* const number = endpoint.c_str() + endpoint.rfind(':') + 1;
    const auto port = static_cast<std::uint16_t>(std::strtoul(number, nullptr, 10));
    constexpr int kPatienceMs = 10'000;
    for (int waited = 0; tryPort(port) == 0 && waited < kPatienceMs; ++waited) {
        ::poll(nullptr, 0, 1);
    }
}
