#pragma once

#include "tools/kaiklactl/CommandLine.hpp"
#include "tools/process/StopSignals.hpp"

#include <zmq.hpp>

#include <string>

namespace kaiklactl {

/// Frees the service from a consumer that is gone: stands in for it at its address, throws away
/// what comes until the service answers, and removes it. Returns a sentence about what was done.
///
/// Throws client::Failure, and client::Interrupted when a signal ends the wait.
std::string drain(const Options& options, zmq::context_t& context, StopSignals& stop);

} // namespace kaiklactl
