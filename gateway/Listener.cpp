#include "gateway/Listener.hpp"

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <memory>
#include <utility>

namespace gateway {
namespace {

/// A client that has gone without a word is noticed after this time, milliseconds.
constexpr int kUserTimeoutMs = 15'000;
/// What a client that does not read may hold in the kernel, bytes. The kernel doubles it.
constexpr int kSendBufferBytes = 64 * 1024;

void setOptions(Socket& socket) {
    const int handle = socket.native_handle();
    const int yes = 1;
    (void)::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    (void)::setsockopt(handle, IPPROTO_TCP, TCP_USER_TIMEOUT, &kUserTimeoutMs,
                       sizeof kUserTimeoutMs);
    (void)::setsockopt(handle, SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof kSendBufferBytes);
}

} // namespace

Listener::Listener(boost::asio::io_context& loop, const Tcp::endpoint& endpoint,
                   Connections& allConnections, HttpSession::Shared& sharedParts,
                   std::function<TlsContext()> tlsContext, Users* knownUsers)
    : acceptor(loop, endpoint), pause(loop), connections(allConnections), shared(sharedParts),
      tls(std::move(tlsContext)), users(knownUsers) {
    accept();
}

void Listener::close() {
    boost::system::error_code ignored;
    (void)acceptor.close(ignored);
    pause.cancel();
}

void Listener::accept() {
    acceptor.async_accept([this](const boost::system::error_code& error, Socket socket) {
        if (!acceptor.is_open()) {
            return;
        }
        if (error) {
            // Mostly: no descriptor is left.
            shared.stream.incidents.count(Incidents::kRefusal, "accept", error.message());
            pause.expires_after(std::chrono::milliseconds(200));
            pause.async_wait([this](const boost::system::error_code& cancelled) {
                if (!cancelled) {
                    accept();
                }
            });
            return;
        }
        take(std::move(socket));
        accept();
    });
}

void Listener::take(Socket socket) {
    boost::system::error_code error;
    const auto address = unmapped(socket.remote_endpoint(error).address());
    if (error) {
        return;
    }
    const std::string from = addressText(address);
    Connections::Place place = connections.admit(from, address.is_loopback(),
                                                 [this] { return HttpSession::makeRoom(shared); });
    if (!place) {
        shared.stream.incidents.count(Incidents::kRefusal, "connections", from);
        return;
    }
    setOptions(socket);
    HttpSession::serve(Transport(std::move(socket), tls(), std::move(place)), shared, users);
}

} // namespace gateway
