#pragma once

#include "gateway/Connections.hpp"

#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/network_v6.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace gateway {

using Tcp = boost::asio::ip::tcp;
using Socket = boost::asio::basic_stream_socket<Tcp, boost::asio::io_context::executor_type>;
using TlsContext = std::shared_ptr<boost::asio::ssl::context>;

/// A listener at :: accepts IPv4, too, and sees its addresses inside of IPv6's.
inline boost::asio::ip::address unmapped(const boost::asio::ip::address& address) {
    return address.is_v6() && address.to_v6().is_v4_mapped()
               ? boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, address.to_v6())
               : address;
}

/// An address as bounds count it: in IPv6 a whole /64 belongs to one customer.
inline std::string addressText(const boost::asio::ip::address& address) {
    if (address.is_v6() && !address.is_loopback()) {
        constexpr unsigned short kCustomerPrefix = 64;
        return boost::asio::ip::make_network_v6(address.to_v6(), kCustomerPrefix)
            .canonical()
            .to_string();
    }
    return address.to_string();
}

/// One accepted connection, with TLS or without, as Asio and Beast read and write it.
class Transport {
public:
    using executor_type = boost::asio::io_context::executor_type;

    /// Without `tls`, plain.
    Transport(Socket socket, TlsContext tls, Connections::Place itsPlace)
        : place(std::move(itsPlace)), context(std::move(tls)) {
        if (context) {
            secure = std::make_unique<SecureStream>(std::move(socket), *context);
        } else {
            plain.emplace(std::move(socket));
        }
    }

    executor_type get_executor() { return socket().get_executor(); }
    Socket& socket() { return secure ? secure->next_layer() : *plain; }

    /// Completes at once without TLS.
    template <typename Handler>
    void async_handshake(Handler&& handler) {
        if (secure) {
            secure->async_handshake(boost::asio::ssl::stream_base::server,
                                    std::forward<Handler>(handler));
        } else {
            std::forward<Handler>(handler)(boost::system::error_code());
        }
    }

    template <typename Buffers, typename Handler>
    void async_read_some(const Buffers& buffers, Handler&& handler) {
        if (secure) {
            secure->async_read_some(buffers, std::forward<Handler>(handler));
        } else {
            plain->async_read_some(buffers, std::forward<Handler>(handler));
        }
    }

    template <typename Buffers, typename Handler>
    void async_write_some(const Buffers& buffers, Handler&& handler) {
        if (secure) {
            secure->async_write_some(buffers, std::forward<Handler>(handler));
        } else {
            plain->async_write_some(buffers, std::forward<Handler>(handler));
        }
    }

    /// Ends what is in progress.
    void close() {
        boost::system::error_code ignored;
        (void)socket().close(ignored);
    }

private:
    using SecureStream = boost::asio::ssl::stream<Socket>;
    Connections::Place place;
    // Kept alive: certificates are replaced while connections stand.
    TlsContext context;
    std::unique_ptr<SecureStream> secure;
    std::optional<Socket> plain;
};

} // namespace gateway
