#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace gateway::payload {

// What devices publish comes from outside: nothing of it is used before its shape is known. Members
// beyond these are let through, so that a newer device may say more.

/// The payload of a topic; `branch` is what stands behind the instance's level: "state", "device",
/// "ptp", "port/NAME", "session/ID" or "event/alarm". Throws Json::Exception when it does not have
/// the shape that belongs there.
Json::Value read(std::string_view branch, const std::string& text);

/// Whether there may be a topic of this name.
bool isBranch(std::string_view branch);

} // namespace gateway::payload
