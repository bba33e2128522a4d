#include "tools/kaiklactl/OneTimeRequest.hpp"

#include "tools/kaiklactl/Failure.hpp"
#include "tools/kaiklactl/Waiting.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

namespace kaiklactl {
namespace {

std::string inSeconds(std::chrono::milliseconds span) {
    constexpr std::size_t kLongestNumber = 32;
    std::array<char, kLongestNumber> text{};
    std::snprintf(text.data(), text.size(), "%g s", std::chrono::duration<double>(span).count());
    return text.data();
}

} // namespace

std::string noAnswerSentence(const Service& service, ServiceConnection::State state) {
    const std::string start =
        "no answer from " + service.endpoint + " within " + inSeconds(service.timeout) + ": ";
    switch (state) {
    case ServiceConnection::State::connecting:
        return start + "kaikla does not run there, or cannot be reached.";
    case ServiceConnection::State::accepted:
        return start + "something listens there, but it is stopped or not kaikla.";
    case ServiceConnection::State::connected:
        return start + "it is there but busy; a consumer that no longer reads can hold "
                       "it up.";
    case ServiceConnection::State::lost:
        break;
    }
    return "no answer from " + service.endpoint + ": it closed the connection.";
}

Json::Value request(zmq::context_t& context, const Service& service,
                    WebNotifierCommand::webnotifier_command_id_t command,
                    const Json::Value& payload, StopSignals* stop) {
    const auto deadline = Clock::now() + service.timeout;
    ServiceConnection connection(context, service.endpoint);
    std::array<zmq_pollitem_t, 3> items = {connection.stateItem(), connection.replyItem(),
                                           stop != nullptr ? pollItem(*stop) : zmq_pollitem_t{}};
    const std::size_t itemCount = stop != nullptr ? items.size() : items.size() - 1;
    for (bool sent = false;;) {
        waitFor({items.data(), itemCount}, deadline);
        if (stop != nullptr) {
            if (const int signal = stop->take(); signal != 0) {
                throw Interrupted{signal};
            }
        }
        if (const std::optional<Reply> reply = connection.receive()) {
            if (reply->result < 0) {
                throw Failure(ExitStatus::refused, reply->error);
            }
            return reply->payload;
        }
        const ServiceConnection::State state = connection.update();
        if (state == ServiceConnection::State::connected && !sent) {
            connection.send(command, payload);
            sent = true;
        }
        if (state == ServiceConnection::State::lost || Clock::now() >= deadline) {
            throw NoAnswer(noAnswerSentence(service, state));
        }
    }
}

} // namespace kaiklactl
