#pragma once

#include "tools/kaiklactl/CommandLine.hpp"
#include "tools/process/StopSignals.hpp"

#include <zmq.hpp>

#include <string>

namespace kaiklactl {

/// The commands that ask the service once: status, add, remove and list. Returns what to print,
/// without a line break at its end.
///
/// Throws client::Failure, and client::Interrupted when a signal ends the wait.
std::string runCommand(const Options& options, zmq::context_t& context, StopSignals& stop);

} // namespace kaiklactl
