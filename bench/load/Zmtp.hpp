#pragma once

#include "bench/load/TcpSocket.hpp"

#include <string>
#include <string_view>

/// As much of ZeroMQ's wire protocol (ZMTP 3.0, ZeroMQ RFC 23, NULL mechanism) as a load
/// generator needs. It shares the machine with what it measures, and sockets of the library would
/// cost as much as the service itself.
namespace zmtp {

/// The bytes of one frame. `more`: another frame of the same message follows.
std::string frame(std::string_view body, bool more = false);

/// Greets the peer and exchanges READY; `socketType` is this end's, such as "PULL".
void shakeHands(const TcpSocket& connection, std::string_view socketType);

/// The body of the next frame, after a handshake.
std::string readFrame(const TcpSocket& connection);

} // namespace zmtp
