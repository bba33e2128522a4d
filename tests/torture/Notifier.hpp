#pragma once

#include <zmq.hpp>

#include <cstdint>
#include <string>

/// One of the platform's notifying services, as far as the service under torture can tell.
class Notifier {
public:
    Notifier(zmq::context_t& context, const char* endpoint);

    /// Waits until `kinds` kinds have been subscribed to; from then on nothing is lost.
    void waitForSubscriptions(int kinds);

    /// Sends one notification; `payload` is its JSON text.
    void send(unsigned kind, const std::string& payload);
    /// Sends any two frames.
    void sendFrames(const std::string& topic, const std::string& body);

    /// The kind that has been subscribed to since the last call, 0 when there is none.
    unsigned newSubscription();

private:
    zmq::socket_t socket;
};

/// Payloads, as compact JSON with the members in ascending order: what is notified of a session is
/// then, byte for byte, what consumers are told of it.
std::string sessionStatus(std::uint64_t id, const std::string& nmosId,
                          const std::string& deviceId = "device");
std::string ptpStatus(const std::string& clockId);
std::string portReport(const std::string& mac, bool up);

/// The NMOS node's answer to a request for the device.
std::string nmosReply(const std::string& deviceId);
