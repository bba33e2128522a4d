#pragma once

#include "tools/kaiklactl/StatusHistory.hpp"

#include <json/value.h>

#include <chrono>
#include <string>
#include <string_view>

namespace kaiklactl {

/// Reads one JSON object from a text that came from the network. The service publishes documents of
/// any size, so the limits of the messages that it takes do not apply here. Raises Json::Exception
/// with a reason of one line.
Json::Value readObject(std::string_view text);

/// One line for a person about a message that came at `time`: the local time of day, the kind and
/// what it changed. It is printable whatever the frame holds, and it has no line break at its end.
std::string messageLine(std::string_view frame, std::chrono::system_clock::time_point time,
                        StatusHistory& history);

} // namespace kaiklactl
