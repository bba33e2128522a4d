#pragma once

#include "tools/kaiklactl/CommandLine.hpp"
#include "tools/process/StopSignals.hpp"

#include <zmq.hpp>

namespace kaiklactl {

/// Answers "why do I get nothing?". Checks the service, the registered consumers or the one given,
/// and what a consumer of its own gets. Prints one line a check, each with advice.
///
/// Returns success when nothing is wrong, noAnswer when the service does not answer, otherwise
/// refused. Throws client::Interrupted when a signal ends it. Its own consumer is removed in any
/// case.
ExitStatus runDoctor(const Options& options, zmq::context_t& context, StopSignals& stop);

} // namespace kaiklactl
