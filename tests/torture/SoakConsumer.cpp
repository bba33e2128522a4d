#include "tests/torture/SoakConsumer.hpp"

#include "tests/torture/Report.hpp"

const std::string& ToldSessions::at(std::int64_t number) const {
    require(number >= first && number < first + static_cast<std::int64_t>(messages.size()),
            "no message comes that nobody has caused, or much too late: " + std::to_string(number));
    return messages[static_cast<std::size_t>(number - first)];
}

void ToldSessions::forgetUpTo(std::int64_t number) {
    for (; first <= number && !messages.empty(); ++first) {
        messages.pop_front();
    }
}

SoakConsumer::SoakConsumer(zmq::context_t& context, const ToldSessions& toldSessions)
    : told(toldSessions), socket(context, zmq::socket_type::pull),
      oldestWhenItCame(told.oldestKept()) {
    socket.set(zmq::sockopt::linger, 0);
    socket.bind("tcp://127.0.0.1:*");
    endpoint = socket.get(zmq::sockopt::last_endpoint);
}

int SoakConsumer::readAll() {
    int count = 0;
    for (zmq::message_t message; socket.recv(message, zmq::recv_flags::dontwait); ++count) {
        take(message.to_string());
    }
    return count;
}

std::int64_t SoakConsumer::doneWithSessions() const {
    const std::int64_t last = heard[SoakLoad::sessions];
    return last == SoakLoad::kNothing ? oldestWhenItCame - 1 : last;
}

bool SoakConsumer::hasHeard(const SoakLoad::Progress& target) const {
    for (std::size_t source = 0; source < target.size(); ++source) {
        // Whoever leaves soon after it came may not have been told of any session.
        const bool toldNothing =
            source == SoakLoad::sessions && heard[source] == SoakLoad::kNothing;
        if (heard[source] < target[source] && !toldNothing) {
            return false;
        }
    }
    return welcomed;
}

void SoakConsumer::take(const std::string& message) {
    constexpr std::string_view kSessionHead = R"({"command_id":1,)";
    if (!message.starts_with(kSessionHead)) {
        takeDocument(message);
        return;
    }
    require(welcomed, "the first message that a consumer gets is the whole status");
    const std::int64_t number = sessionNumberIn(message);
    std::int64_t& last = heard[SoakLoad::sessions];
    require(last == SoakLoad::kNothing || number == last + 1,
            "session message " + std::to_string(last + 1) + " follows, not " +
                std::to_string(number));
    require(message == told.at(number), "a session's message is what has been notified");
    last = number;
}

void SoakConsumer::takeDocument(const std::string& message) {
    const std::int64_t ptpSteps = ptpNumberIn(message) - heard[SoakLoad::ptp];
    const std::int64_t portSteps = portsNumberIn(message) - heard[SoakLoad::ports];
    require(!welcomed || (ptpSteps == 1 && portSteps == 0) || (ptpSteps == 0 && portSteps == 1),
            "each change of PTP or ports is told once and in order");
    heard[SoakLoad::ptp] += ptpSteps;
    heard[SoakLoad::ports] += portSteps;
    welcomed = true;
}
