#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// The load's connections to the subject, as descriptors, and how messages become bytes on them.
///
/// The load shares the machine with the subject. The library's sockets would cost it as much as
/// the subject itself, so it reads and writes plain bytes once a connection is made.
class Peers {
public:
    Peers() = default;
    virtual ~Peers() = default;
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;

    /// The bytes that make the subject send `published`: for the service a notification of this
    /// kind, for a broker the published message itself.
    virtual std::string cause(unsigned kind, const std::string& notification,
                              const std::string& published) const = 0;
    /// The bytes of `published` as a consumer receives them.
    virtual std::string delivery(const std::string& published) const = 0;

    /// Where notifications of sessions and of the PTP state are written. A broker has one source.
    int sessionSource = -1;
    int ptpSource = -1;
    std::vector<int> consumers;
};

/// Plays the platform's services and registers `consumers` consumers with the subject. Throws
/// std::runtime_error when the subject has not connected and answered within ten seconds.
std::unique_ptr<Peers> playPlatform(std::size_t consumers);

/// Connects one publisher and `consumers` subscribers to the MQTT broker on `port` of 127.0.0.1.
/// Throws std::runtime_error when the broker refuses.
std::unique_ptr<Peers> connectToBroker(std::uint16_t port, std::size_t consumers);
