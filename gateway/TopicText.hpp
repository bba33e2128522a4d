#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace gateway {

/// What every topic begins with, before the instance.
inline constexpr std::string_view kTopicRoot = "kaikla/v1/";

// What stands behind the instance.
inline constexpr const char* kStateTopic = "state";
inline constexpr const char* kDeviceTopic = "device";
inline constexpr const char* kPtpTopic = "ptp";
inline constexpr const char* kAlarmTopic = "event/alarm";
/// Each with a name or an id behind it.
inline constexpr std::string_view kPortTopics = "port/";
inline constexpr std::string_view kSessionTopics = "session/";

/// A name as one level of an MQTT topic: every byte but printable ASCII, and / + # and %, becomes %
/// and two hexadecimal digits. A name may be anything, UTF-8 or not.
std::string topicLevel(std::string_view name);

/// The name that `level` stands for; nothing for a text that topicLevel() does not make.
std::optional<std::string> nameOfLevel(std::string_view level);

/// The topic under which an instance publishes: "kaikla/v1/INSTANCE/".
std::string topicBranch(std::string_view instance);

/// The topic of a port, behind the instance.
std::string portTopic(std::string_view name);

/// The topic of a session, behind the instance; an id as the API writes it.
std::string sessionTopic(std::string_view id);

/// Whether a text may name an instance: letters, digits, "-", "_" and ".", at most 64.
bool isInstanceName(std::string_view text);

} // namespace gateway
