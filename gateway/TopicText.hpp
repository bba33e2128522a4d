#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace gateway {

/// A name as one level of an MQTT topic: every byte but printable ASCII, and / + # and %, becomes %
/// and two hexadecimal digits. A name may be anything, UTF-8 or not.
std::string topicLevel(std::string_view name);

/// The name that `level` stands for; nothing for a text that topicLevel() does not make.
std::optional<std::string> nameOfLevel(std::string_view level);

/// The topic under which an instance publishes: "kaikla/v1/INSTANCE/".
std::string topicBranch(std::string_view instance);

/// Whether a text may name an instance: letters, digits, "-", "_" and ".", at most 64.
bool isInstanceName(std::string_view text);

} // namespace gateway
