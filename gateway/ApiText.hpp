#pragma once

#include <json/value.h>

#include <chrono>
#include <memory>
#include <string>

namespace gateway {

using Clock = std::chrono::steady_clock;
using WallClock = std::chrono::system_clock;

/// Bytes that several connections send at the same time.
using SharedText = std::shared_ptr<const std::string>;

/// `value` as one line of ASCII: other characters are escaped, bytes that are not UTF-8 become
/// U+FFFD, doubles have 15 significant digits.
std::string jsonText(const Json::Value& value);

/// RFC 3339, UTC, milliseconds: "2026-03-01T12:00:00.123Z".
std::string timeText(WallClock::time_point time);

} // namespace gateway
