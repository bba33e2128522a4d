#pragma once

#include "gateway/Parts.hpp"

#include <string>

namespace gateway {

/// The Prometheus text exposition format, version 0.0.4.
inline constexpr const char* kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

/// Everything that is measured. With `withSessions`, one series a session for the first 200.
std::string metricsText(const Parts& parts, bool withSessions);

} // namespace gateway
