#pragma once

#include "tools/kaiklactl/CommandLine.hpp"
#include "tools/signals/StopSignals.hpp"

#include <zmq.hpp>

namespace kaiklactl {

/// The commands that are one request each: status, add, remove and list. Throws client::Failure,
/// and client::Interrupted when a signal ends the wait.
void runCommand(const Options& options, zmq::context_t& context, StopSignals& stop);

} // namespace kaiklactl
