#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// A TCP connection or listener on the loopback interface, closed with the object.
///
/// Used for setting up, where one step follows another: every wait ends after ten seconds. All
/// failures raise std::runtime_error.
class TcpSocket {
public:
    /// Listens on `port`, or on a free one when it is 0.
    static TcpSocket listenOn(std::uint16_t port);
    static TcpSocket connectTo(std::uint16_t port);

    TcpSocket(TcpSocket&& other) noexcept;
    TcpSocket& operator=(TcpSocket&& other) noexcept;
    TcpSocket(const TcpSocket&) = delete;
    TcpSocket& operator=(const TcpSocket&) = delete;
    ~TcpSocket();

    /// Waits for the next connection.
    TcpSocket accept() const;
    void readExactly(char* into, std::size_t size) const;
    void writeAll(std::string_view bytes) const;
    /// The port of this end.
    std::uint16_t port() const;
    int fileDescriptor() const { return descriptor; }

private:
    explicit TcpSocket(int ownedDescriptor) : descriptor(ownedDescriptor) {}

    int descriptor;
};
