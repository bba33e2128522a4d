#pragma once

#include "gateway/Parts.hpp"

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace gateway {

/// What the device says under each topic of its branch at a broker. Topics here are without the
/// branch.
class DeviceTopics {
public:
    explicit DeviceTopics(const Parts& describedParts) : parts(describedParts) {}

    /// Every topic that has a document now.
    std::vector<std::string> all() const;

    /// The document of `topic`; nothing when the device has no such thing.
    std::optional<std::string> document(const std::string& topic) const;

    /// "device" without its time.
    Json::Value summary() const;

private:
    const Json::Value* record(const std::string& topic) const;

    Parts parts;
};

/// The texts of the events for the alarms in which two records of a session differ; either may be
/// null. What was there before the gateway started has not been raised.
std::vector<std::string> alarmEvents(const Json::Value& before, const Json::Value& after);

} // namespace gateway
