#pragma once

#include "tools/kaiklactl/StatusHistory.hpp"

#include <chrono>
#include <string>
#include <string_view>

namespace kaiklactl {

/// One line for a person about a message that came at `time`: the local time of day, the kind and
/// what it changed. It is printable whatever the frame holds, and it has no line break at its end.
std::string messageLine(std::string_view frame, std::chrono::system_clock::time_point time,
                        StatusHistory& history);

} // namespace kaiklactl
