#include "bench/load/Zmtp.hpp"

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <stdexcept>

namespace {

constexpr unsigned kMore = 0x01;
constexpr unsigned kLong = 0x02;
constexpr unsigned kCommand = 0x04;
constexpr unsigned kBitsInByte = 8;

/// Signature, version 3.0, mechanism, as-server 0 and filler.
std::string greeting() {
    constexpr std::size_t kSize = 64;
    constexpr std::size_t kSignatureEnd = 9;
    constexpr std::size_t kVersion = 10;
    constexpr std::size_t kMechanism = 12;
    std::string bytes(kSize, '\0');
    bytes[0] = '\xff';
    bytes[kSignatureEnd] = '\x7f';
    bytes[kVersion] = '\x03';
    bytes.replace(kMechanism, 4, "NULL");
    return bytes;
}

std::string bigEndian(std::uint64_t value, std::size_t bytes) {
    std::string text;
    for (std::size_t left = bytes; left > 0; --left) {
        text += static_cast<char>(value >> (kBitsInByte * (left - 1)));
    }
    return text;
}

std::string anyFrame(unsigned flags, std::string_view body) {
    const bool isLong = body.size() > std::numeric_limits<unsigned char>::max();
    std::string bytes(1, static_cast<char>(flags | (isLong ? kLong : 0)));
    bytes += bigEndian(body.size(), isLong ? sizeof(std::uint64_t) : 1);
    bytes += body;
    return bytes;
}

} // namespace

namespace zmtp {

std::string frame(std::string_view body, bool more) {
    return anyFrame(more ? kMore : 0, body);
}

void shakeHands(const TcpSocket& connection, std::string_view socketType) {
    std::string peerGreeting = greeting();
    connection.writeAll(peerGreeting);
    connection.readExactly(peerGreeting.data(), peerGreeting.size());
    std::string ready = "\x05READY";
    ready += "\x0bSocket-Type" + bigEndian(socketType.size(), sizeof(std::uint32_t));
    ready += socketType;
    connection.writeAll(anyFrame(kCommand, ready));
    if (readFrame(connection).compare(0, 6, "\x05READY") != 0) {
        throw std::runtime_error("the peer does not speak ZMTP 3 as expected");
    }
}

std::string readFrame(const TcpSocket& connection) {
    char flags = 0;
    connection.readExactly(&flags, 1);
    const bool isLong = (static_cast<unsigned char>(flags) & kLong) != 0;
    std::array<unsigned char, sizeof(std::uint64_t)> length{};
    const std::size_t lengthBytes = isLong ? length.size() : 1;
    connection.readExactly(reinterpret_cast<char*>(length.data()), lengthBytes);
    std::uint64_t size = 0;
    for (const unsigned char byte : std::span(length).first(lengthBytes)) {
        size = size << kBitsInByte | byte;
    }
    std::string body(size, '\0');
    connection.readExactly(body.data(), body.size());
    return body;
}

} // namespace zmtp
