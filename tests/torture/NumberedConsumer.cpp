#include "tests/torture/NumberedConsumer.hpp"

#include "tests/torture/Report.hpp"

#include <charconv>
#include <chrono>
#include <string_view>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t kNoSession = -1;

std::int64_t numberIn(std::string_view message) {
    constexpr std::string_view kKey = R"("nmos_id":")";
    const auto at = message.find(kKey);
    std::int64_t number = kNoSession;
    if (at != std::string_view::npos) {
        std::from_chars(message.data() + at + kKey.size(), message.data() + message.size(), number);
    }
    return number;
}

} // namespace

void bindPatiently(zmq::socket_t& socket, const std::string& endpoint) {
    for (const auto end = Clock::now() + std::chrono::seconds(2);;) {
        try {
            socket.bind(endpoint);
            return;
        } catch (const zmq::error_t&) {
            require(Clock::now() < end, "a consumer's port can be bound again");
        }
    }
}

NumberedConsumer::NumberedConsumer(zmq::context_t& context) : zmqContext(&context) {
    comeBack();
    gapAllowed = false;
}

void NumberedConsumer::comeBack() {
    socket.emplace(*zmqContext, zmq::socket_type::pull);
    socket->set(zmq::sockopt::linger, 0);
    if (little) {
        constexpr int kBytes = 64 * 1024;
        socket->set(zmq::sockopt::rcvhwm, 1);
        socket->set(zmq::sockopt::rcvbuf, kBytes);
    }
    bindPatiently(*socket, endpoint);
    endpoint = socket->get(zmq::sockopt::last_endpoint);
    gapAllowed = true;
}

bool NumberedConsumer::readOne(zmq::recv_flags flags) {
    zmq::message_t message;
    if (!socket->recv(message, flags)) {
        return false;
    }
    const std::int64_t number = numberIn(message.to_string_view());
    if (number == kNoSession || message.to_string_view().find("status-all") != std::string::npos) {
        return true;
    }
    ++count;
    if (lastNumber >= 0 && number != lastNumber + 1) {
        require(gapAllowed && number > lastNumber, "message " + std::to_string(lastNumber + 1) +
                                                       " follows, not " + std::to_string(number));
        lost += number - lastNumber - 1;
    }
    gapAllowed = false;
    lastNumber = number;
    return true;
}

void NumberedConsumer::readAll() {
    while (readOne(zmq::recv_flags::dontwait)) {
    }
}

bool NumberedConsumer::readUpTo(std::int64_t number, int limitMs) {
    const auto end = Clock::now() + std::chrono::milliseconds(limitMs);
    constexpr int kStepMs = 20;
    socket->set(zmq::sockopt::rcvtimeo, kStepMs);
    while (lastNumber < number) {
        if (!readOne(zmq::recv_flags::none) && Clock::now() >= end) {
            return false;
        }
    }
    return true;
}
