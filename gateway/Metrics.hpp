#pragma once

#include "gateway/Parts.hpp"

#include <string>

namespace gateway {

/// Everything that is measured. With `withSessions`, one series a session for the first 200.
std::string metricsText(const Parts& parts, bool withSessions);

} // namespace gateway
