#include "tests/support/Consumer.hpp"

#include "tests/support/CommandClient.hpp"

Consumer::Consumer(zmq::context_t& context) : socket(context, zmq::socket_type::pull) {
    socket.set(zmq::sockopt::linger, 0);
    socket.bind("tcp://127.0.0.1:*");
    endpoint = socket.get(zmq::sockopt::last_endpoint);
}

std::optional<std::string> Consumer::receiveText(std::chrono::milliseconds limit) {
    socket.set(zmq::sockopt::rcvtimeo, static_cast<int>(limit.count()));
    zmq::message_t message;
    if (!socket.recv(message)) {
        return std::nullopt;
    }
    return message.to_string();
}

Json::Value Consumer::receive(std::chrono::milliseconds limit) {
    const auto text = receiveText(limit);
    return text ? parseJson(*text) : Json::Value();
}

bool Consumer::staysSilent(std::chrono::milliseconds span) {
    return !receiveText(span);
}
