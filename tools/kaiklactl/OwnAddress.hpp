#pragma once

#include <string>

namespace kaiklactl {

/// The IPv4 address from which this machine reaches the host of a "tcp://host:port" endpoint:
/// 127.0.0.1 for one on this machine, and when the host cannot be found.
std::string ownAddressTowards(const std::string& endpoint);

/// Whether a "tcp://host:port" endpoint names the loopback network, which only its own machine
/// can reach.
bool isLoopback(const std::string& endpoint);

} // namespace kaiklactl
