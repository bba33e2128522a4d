#pragma once

#include "bench/load/TcpSocket.hpp"
#include "bench/load/Workload.hpp"

#include <cstdint>
#include <memory>
#include <vector>

/// The connections of the load to what it measures, ready for use: nothing is under way on any of
/// them but what was sent since.
struct Peers {
    /// Where notifications of sessions and of the PTP state go in; the same one for a broker.
    std::vector<TcpSocket> sources;
    std::vector<TcpSocket> consumers;

    const TcpSocket& sessionSource() const { return sources.front(); }
    const TcpSocket& ptpSource() const { return sources.back(); }
};

/// Plays the services of the platform and `consumers` consumers for a subject that connects to
/// their endpoints and takes commands. `firstEvent` is sent, and all that a consumer gets before
/// it, such as the document on its registration, is read away: it becomes event 0.
class PlatformPeers {
public:
    PlatformPeers();
    ~PlatformPeers();
    PlatformPeers(const PlatformPeers&) = delete;
    PlatformPeers& operator=(const PlatformPeers&) = delete;
    PlatformPeers(PlatformPeers&&) = delete;
    PlatformPeers& operator=(PlatformPeers&&) = delete;

    Peers connect(std::size_t consumers, Workload& firstEvent);

    static Framing framing();

private:
    struct IdleServices;
    std::unique_ptr<IdleServices> idle;
};

/// The same with an MQTT broker on `port` in the subject's place: one publisher, and subscribers.
Peers connectToBroker(std::uint16_t port, std::size_t consumers, Workload& firstEvent);
Framing brokerFraming();
