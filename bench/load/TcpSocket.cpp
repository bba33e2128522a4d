#include "bench/load/TcpSocket.hpp"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

constexpr time_t kPatienceSeconds = 10;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

template <typename Value>
void setOption(int descriptor, int level, int name, const Value& value) {
    if (::setsockopt(descriptor, level, name, &value, sizeof value) != 0) {
        fail("setsockopt");
    }
}

int openStream() {
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        fail("socket");
    }
    setOption(descriptor, SOL_SOCKET, SO_RCVTIMEO, timeval{kPatienceSeconds, 0});
    setOption(descriptor, SOL_SOCKET, SO_SNDTIMEO, timeval{kPatienceSeconds, 0});
    return descriptor;
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

} // namespace

TcpSocket TcpSocket::listenOn(std::uint16_t port) {
    TcpSocket socket(openStream());
    if (port != 0) {
        setOption(socket.descriptor, SOL_SOCKET, SO_REUSEADDR, int{1});
    }
    const sockaddr_in address = loopback(port);
    if (::bind(socket.descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0 ||
        ::listen(socket.descriptor, SOMAXCONN) != 0) {
        fail("port " + std::to_string(port));
    }
    return socket;
}

TcpSocket TcpSocket::connectTo(std::uint16_t port) {
    TcpSocket socket(openStream());
    setOption(socket.descriptor, IPPROTO_TCP, TCP_NODELAY, int{1});
    const sockaddr_in address = loopback(port);
    if (::connect(socket.descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
        0) {
        fail("connecting to port " + std::to_string(port));
    }
    return socket;
}

TcpSocket::TcpSocket(TcpSocket&& other) noexcept
    : descriptor(std::exchange(other.descriptor, -1)) {}

TcpSocket& TcpSocket::operator=(TcpSocket&& other) noexcept {
    std::swap(descriptor, other.descriptor);
    return *this;
}

TcpSocket::~TcpSocket() {
    if (descriptor >= 0) {
        ::close(descriptor);
    }
}

TcpSocket TcpSocket::accept() const {
    const int accepted = ::accept4(descriptor, nullptr, nullptr, SOCK_CLOEXEC);
    if (accepted < 0) {
        fail("nobody connected to port " + std::to_string(port()));
    }
    TcpSocket socket(accepted);
    setOption(accepted, SOL_SOCKET, SO_RCVTIMEO, timeval{kPatienceSeconds, 0});
    setOption(accepted, SOL_SOCKET, SO_SNDTIMEO, timeval{kPatienceSeconds, 0});
    setOption(accepted, IPPROTO_TCP, TCP_NODELAY, int{1});
    return socket;
}

void TcpSocket::readExactly(char* into, std::size_t size) const {
    while (size > 0) {
        const ssize_t count = ::recv(descriptor, into, size, 0);
        if (count == 0) {
            throw std::runtime_error("the peer closed the connection");
        }
        if (count < 0) {
            fail("waiting for the peer");
        }
        into += count;
        size -= static_cast<std::size_t>(count);
    }
}

void TcpSocket::writeAll(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t count = ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0) {
            fail("writing to the peer");
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

std::uint16_t TcpSocket::port() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        fail("getsockname");
    }
    return ntohs(address.sin_port);
}
