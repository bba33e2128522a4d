#pragma once

#include "tools/kaiklactl/CommandLine.hpp"

#include <zmq.hpp>

namespace kaiklactl {

/// The commands that are one request each: status, add, remove and list. Throws Failure.
void runCommand(const Options& options, zmq::context_t& context);

} // namespace kaiklactl
