#include "tests/torture/Notifier.hpp"

#include "tests/torture/Report.hpp"

#include <cstdlib>

namespace {

/// A subscription begins with 1, the end of one with 0.
bool isSubscription(const zmq::message_t& message) {
    return message.size() > 1 && *message.data<char>() == 1;
}

} // namespace

Notifier::Notifier(zmq::context_t& context, const char* endpoint)
    : socket(context, zmq::socket_type::xpub) {
    socket.set(zmq::sockopt::linger, 0);
    // Every subscription, not only the first to its kind: the service before may not be gone yet.
    socket.set(zmq::sockopt::xpub_verbose, 1);
    socket.bind(endpoint);
}

void Notifier::waitForSubscriptions(int kinds) {
    constexpr int kLimitMs = 5000;
    socket.set(zmq::sockopt::rcvtimeo, kLimitMs);
    for (int subscribed = 0; subscribed < kinds;) {
        zmq::message_t message;
        require(socket.recv(message).has_value(),
                "the service subscribes to a platform service within 5 s");
        subscribed += isSubscription(message) ? 1 : 0;
    }
}

unsigned Notifier::newSubscription() {
    zmq::message_t message;
    if (!socket.recv(message, zmq::recv_flags::dontwait) || !isSubscription(message)) {
        return 0;
    }
    return static_cast<unsigned>(std::strtoul(message.to_string().substr(1).c_str(), nullptr, 10));
}

void Notifier::send(unsigned kind, const std::string& payload) {
    const std::string number = std::to_string(kind);
    sendFrames(number, R"({"command_id":)" + number + R"(,"payload":)" + payload + "}");
}

void Notifier::sendFrames(const std::string& topic, const std::string& body) {
    socket.send(zmq::buffer(topic), zmq::send_flags::sndmore);
    socket.send(zmq::buffer(body), zmq::send_flags::none);
}

std::string sessionStatus(std::uint64_t id, const std::string& nmosId,
                          const std::string& deviceId) {
    return R"({"device_id":")" + deviceId + R"(","id":)" + std::to_string(id) + R"(,"nmos_id":")" +
           nmosId + R"("})";
}

std::string ptpStatus(const std::string& clockId) {
    return R"({"clock_id":")" + clockId + R"(","locked":true})";
}

std::string portReport(const std::string& mac, bool up) {
    return R"({"eths":[{"mac":")" + mac + R"(","name":"eth0","state":)" + (up ? "1" : "0") + "}]}";
}

std::string nmosReply(const std::string& deviceId) {
    return R"({"command_id":0,"command_name":"GET device info","payload":{"device":{"id":")" +
           deviceId + R"("}},"result":0})";
}
