#pragma once

#include <string>

// What ZeroMQ cannot say about a port of the loopback interface: it closes its own in the
// background.

/// An endpoint "tcp://127.0.0.1:PORT" where nobody listens.
std::string freeEndpoint();

/// Returns when nobody listens at such an endpoint any more, or after ten seconds.
void waitUntilFree(const std::string& endpoint);
