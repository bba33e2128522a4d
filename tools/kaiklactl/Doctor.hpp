#pragma once

#include "tools/kaiklactl/CommandLine.hpp"
#include "tools/signals/StopSignals.hpp"

#include <zmq.hpp>

namespace kaiklactl {

/// Answers "why do I get nothing?": looks at the service, at the consumers that it knows or the one
/// given, and at what a consumer of its own gets. Prints one line a check, each with what to do.
///
/// Returns success when nothing is wrong, noAnswer when the service is not there, otherwise
/// refused. Throws Interrupted when a signal ends it; its own consumer is taken out in every case.
ExitStatus runDoctor(const Options& options, zmq::context_t& context, StopSignals& stop);

} // namespace kaiklactl
