#pragma once

#include "gateway/Connections.hpp"
#include "gateway/HttpSession.hpp"
#include "gateway/Transport.hpp"

#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>

#include <functional>

namespace gateway {

using Timer = boost::asio::basic_waitable_timer<Clock, boost::asio::wait_traits<Clock>,
                                                boost::asio::io_context::executor_type>;

/// One address and port at which connections are accepted.
class Listener {
public:
    /// Binds and begins to accept. `tls` gives the context for the next connection, null for a
    /// plain one; with `users`, only these are served. Throws boost::system::system_error.
    Listener(boost::asio::io_context& loop, const Tcp::endpoint& endpoint, Connections& connections,
             HttpSession::Shared& shared, std::function<TlsContext()> tls, Users* users);

    void close();

private:
    using Acceptor =
        boost::asio::basic_socket_acceptor<Tcp, boost::asio::io_context::executor_type>;

    void accept();
    void take(Socket socket);

    Acceptor acceptor;
    Timer pause;
    Connections& connections;
    HttpSession::Shared& shared;
    std::function<TlsContext()> tls;
    Users* users;
};

} // namespace gateway
