#pragma once

#include "handler/WebNotifierCommand.hpp"
#include "tools/kaiklactl/ServiceConnection.hpp"
#include "tools/signals/StopSignals.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <chrono>
#include <string>

namespace kaiklactl {

/// Where the service is and how long it may take to answer.
struct Service {
    std::string endpoint;
    std::chrono::milliseconds timeout;
};

/// Why no answer came, in a sentence that says what to look at.
std::string noAnswerSentence(const Service& service, ServiceConnection::State state);

/// Connects, sends one command and waits for its answer, all within the service's timeout. Returns
/// the payload. Throws Failure with the service's own sentence when it refuses, and when there is
/// no answer. With `stop`, a signal ends the wait: Interrupted.
Json::Value request(zmq::context_t& context, const Service& service,
                    WebNotifierCommand::webnotifier_command_id_t command,
                    const Json::Value& payload = Json::Value(), StopSignals* stop = nullptr);

} // namespace kaiklactl
