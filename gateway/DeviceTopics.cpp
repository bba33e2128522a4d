#include "gateway/DeviceTopics.hpp"

#include "gateway/TopicText.hpp"

#include <algorithm>
#include <charconv>
#include <map>
#include <string_view>
#include <utility>

namespace gateway {
namespace {

bool isSameAlarm(const Json::Value& one, const Json::Value& other) {
    return one["type"] == other["type"] && one["severity"] == other["severity"] &&
           one["description"] == other["description"];
}

/// The lists of alarms in a session by the stream's id, empty for the session's own.
using AlarmLists = std::map<std::string, const Json::Value*>;

AlarmLists alarmLists(const Json::Value& session) {
    AlarmLists lists;
    if (!session.isNull()) {
        lists[""] = &session["alarms"];
        for (const Json::Value& stream : session["streams"]) {
            lists[stream["id"].asString()] = &stream["alarms"];
        }
    }
    return lists;
}

bool holds(const AlarmLists& lists, const std::string& stream, const Json::Value& alarm) {
    const auto list = lists.find(stream);
    return list != lists.end() &&
           std::any_of(list->second->begin(), list->second->end(),
                       [&](const Json::Value& each) { return isSameAlarm(each, alarm); });
}

} // namespace

std::vector<std::string> DeviceTopics::all() const {
    std::vector<std::string> topics = {kDeviceTopic};
    if (!parts.device.ptp().isNull()) {
        topics.emplace_back(kPtpTopic);
    }
    for (const auto& [name, port] : parts.device.ports()) {
        topics.push_back(portTopic(name));
    }
    for (const auto& [id, session] : parts.device.sessions()) {
        topics.push_back(sessionTopic(std::to_string(id)));
    }
    return topics;
}

std::optional<std::string> DeviceTopics::document(const std::string& topic) const {
    if (topic == kDeviceTopic) {
        Json::Value json = summary();
        json["time"] = timeText(WallClock::now());
        return jsonText(json);
    }
    const Json::Value* const json = record(topic);
    return json == nullptr || json->isNull() ? std::nullopt : std::optional(jsonText(*json));
}

Json::Value DeviceTopics::summary() const {
    Json::Value json;
    const DeviceState::Totals totals = parts.device.totals();
    json["epoch"] = parts.ring.epoch();
    json["id"] = parts.device.deviceId().empty() ? Json::Value() : parts.device.deviceId();
    json["source"] = parts.source.toJson();
    json["monitors"] = parts.monitors.deviceDetails();
    json["sessions"] = Json::UInt64{totals.sessions};
    json["streams"] = Json::UInt64{totals.streams};
    for (std::size_t i = 0; i < AlarmCounts::severities; ++i) {
        json["alarms"][AlarmCounts::kNames.at(i)] = Json::UInt64{totals.alarms.number.at(i)};
    }
    return json;
}

const Json::Value* DeviceTopics::record(const std::string& topic) const {
    if (topic == kPtpTopic) {
        return &parts.device.ptp();
    }
    if (topic.starts_with(kPortTopics)) {
        const auto name = nameOfLevel(std::string_view(topic).substr(kPortTopics.size()));
        const auto port = parts.device.ports().find(name.value_or(""));
        return !name || port == parts.device.ports().end() ? nullptr : &port->second;
    }
    std::uint64_t id = 0;
    if (topic.starts_with(kSessionTopics)) {
        (void)std::from_chars(topic.data() + kSessionTopics.size(), topic.data() + topic.size(),
                              id);
    }
    // Another way to write the same id is another topic.
    return topic == sessionTopic(std::to_string(id)) ? parts.device.session(id) : nullptr;
}

std::vector<std::string> alarmEvents(const Json::Value& before, const Json::Value& after) {
    const AlarmLists old = alarmLists(before);
    const AlarmLists current = alarmLists(after);
    const Json::Value& session = after.isNull() ? before : after;
    std::vector<std::string> events;
    const auto addMissing = [&](const AlarmLists& lists, const AlarmLists& others,
                                const char* state, bool isWithUndated) {
        for (const auto& [stream, alarms] : lists) {
            for (const Json::Value& alarm : *alarms) {
                if (holds(others, stream, alarm) || (!isWithUndated && alarm["since"].isNull())) {
                    continue;
                }
                Json::Value event;
                event["time"] = timeText(WallClock::now());
                event["state"] = state;
                event["session"] = session["id"];
                event["stream"] = stream.empty() ? Json::Value() : Json::Value(stream);
                event["alarm"] = alarm;
                events.push_back(jsonText(event));
            }
        }
    };
    addMissing(old, current, "cleared", true);
    addMissing(current, old, "raised", false);
    return events;
}

} // namespace gateway
