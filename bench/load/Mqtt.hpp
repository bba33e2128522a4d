#pragma once

#include "bench/load/TcpSocket.hpp"

#include <string>
#include <string_view>

/// As much of MQTT 3.1.1 (OASIS standard) as publishing and subscribing at QoS 0 needs.
namespace mqtt {

/// Introduces this end to the broker and waits until it is accepted.
void connect(const TcpSocket& connection, std::string_view clientId);

/// Subscribes to one topic at QoS 0 and waits until that is granted.
void subscribe(const TcpSocket& connection, std::string_view topic);

/// The bytes of one PUBLISH at QoS 0; a broker hands a subscriber the very same ones.
std::string publishPacket(std::string_view topic, std::string_view payload);

/// The bytes of the next packet.
std::string readPacket(const TcpSocket& connection);

} // namespace mqtt
