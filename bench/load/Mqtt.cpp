#include "bench/load/Mqtt.hpp"

#include <cstdint>
#include <stdexcept>

namespace {

// Packet types with their fixed flags, as the first byte of a packet holds them.
constexpr char kConnect = '\x10';
constexpr char kConnectAccepted = '\x20';
constexpr char kPublish = '\x30';
constexpr char kSubscribe = '\x82';
constexpr char kSubscribeAccepted = '\x90';

// The remaining length comes seven bits a byte, lowest first; the high bit says that one follows.
constexpr unsigned kLengthBits = 7;
constexpr unsigned kLengthMask = 0x7f;
constexpr unsigned kLengthFollows = 0x80;

std::string packet(char type, std::string_view rest) {
    std::string bytes(1, type);
    std::size_t length = rest.size();
    do {
        const auto low = static_cast<unsigned>(length & kLengthMask);
        length >>= kLengthBits;
        bytes += static_cast<char>(low | (length > 0 ? kLengthFollows : 0));
    } while (length > 0);
    bytes += rest;
    return bytes;
}

std::string prefixed(std::string_view text) {
    constexpr unsigned kBitsInByte = 8;
    std::string bytes(1, static_cast<char>(text.size() >> kBitsInByte));
    bytes += static_cast<char>(text.size());
    bytes += text;
    return bytes;
}

/// Waits for the broker's answer of this type; its last byte is 0 for success at QoS 0.
void expectAnswer(const TcpSocket& connection, char type) {
    const std::string answer = mqtt::readPacket(connection);
    if (answer.front() != type || answer.back() != 0) {
        throw std::runtime_error("the broker refused");
    }
}

} // namespace

namespace mqtt {

void connect(const TcpSocket& connection, std::string_view clientId) {
    // Protocol level 4, a clean session, no keep-alive.
    connection.writeAll(
        packet(kConnect, prefixed("MQTT") + std::string{4, 2, 0, 0} + prefixed(clientId)));
    expectAnswer(connection, kConnectAccepted);
}

void subscribe(const TcpSocket& connection, std::string_view topic) {
    connection.writeAll(packet(kSubscribe, std::string{0, 1} + prefixed(topic) + std::string{0}));
    expectAnswer(connection, kSubscribeAccepted);
}

std::string publishPacket(std::string_view topic, std::string_view payload) {
    return packet(kPublish, prefixed(topic).append(payload));
}

std::string readPacket(const TcpSocket& connection) {
    std::string bytes(2, '\0');
    connection.readExactly(bytes.data(), bytes.size());
    std::size_t length = static_cast<unsigned char>(bytes.back()) & kLengthMask;
    for (unsigned shift = kLengthBits;
         (static_cast<unsigned char>(bytes.back()) & kLengthFollows) != 0; shift += kLengthBits) {
        char next = 0;
        connection.readExactly(&next, 1);
        bytes += next;
        length |= (static_cast<unsigned char>(next) & kLengthMask) << shift;
    }
    const std::size_t head = bytes.size();
    bytes.resize(head + length);
    connection.readExactly(bytes.data() + head, length);
    return bytes;
}

} // namespace mqtt
