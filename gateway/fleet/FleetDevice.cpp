#include "gateway/fleet/FleetDevice.hpp"

#include "gateway/TopicText.hpp"
#include "gateway/fleet/Payload.hpp"

#include <algorithm>
#include <array>
#include <ctime>
#include <iterator>
#include <optional>
#include <utility>

namespace gateway {
namespace {

// Members of a row.
constexpr const char* kState = "state";
constexpr const char* kPtp = "ptp";

constexpr std::array<const char*, 3> kMonitors = {"overall", "links", "synchronization"};

Json::Value named(const char* name, Json::Value value) {
    Json::Value data;
    data[name] = std::move(value);
    return data;
}

/// Whole seconds are enough here.
std::optional<WallClock::time_point> timeOf(const std::string& text) {
    std::tm utc{};
    if (::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &utc) == nullptr) {
        return std::nullopt;
    }
    return WallClock::from_time_t(::timegm(&utc));
}

AlarmCounts alarmsOf(const Json::Value& session) {
    AlarmCounts counts;
    for (const Json::Value& alarm : session["alarms"]) {
        counts.add(alarm["severity"].asString());
    }
    for (const Json::Value& stream : session["streams"]) {
        for (const Json::Value& alarm : stream["alarms"]) {
            counts.add(alarm["severity"].asString());
        }
    }
    return counts;
}

/// Every client gets every row: a text is cut there.
Json::Value forRow(const Json::Value& text) {
    constexpr std::size_t kLongest = 256;
    return text.isNull() ? text : text.asString().substr(0, kLongest);
}

/// Of a device of which nothing is known yet.
Json::Value emptyRow(const std::string& instance) {
    Json::Value row;
    row["instance"] = instance;
    row["complete"] = true;
    for (const char* const unknown : {kState, "id", "source", "overall", "reason", "links",
                                      "synchronization", kPtp, "sessions", "streams", "alarms"}) {
        row[unknown] = Json::Value();
    }
    row["ports"]["up"] = row["ports"]["down"] = 0;
    return row;
}

} // namespace

FleetDevice::FleetDevice(const std::string& instance) : shownRow(emptyRow(instance)) {}

FleetDevice::Bound FleetDevice::take(std::string_view branch, const std::string& payload,
                                     bool isRetained, Changes& changes) {
    if (!isRetained) {
        lastHeard = WallClock::now();
    }
    const auto found = topics.find(branch);
    if (payload.empty()) {
        if (found != topics.end()) {
            remove(found, changes);
        }
        return Bound::none;
    }
    if (branch == kAlarmTopic) {
        changes.push_back({"alarm", named("alarm", payload::read(branch, payload))});
        return Bound::none;
    }
    const bool isNew = found == topics.end();
    if (!isNew && found->second.payload == payload) {
        found->second.retrieval = retrieval;
        return Bound::none;
    }
    const std::size_t others = bytes - (isNew ? 0 : found->second.payload.size());
    if ((isNew && topics.size() >= kMaxTopics) || others + payload.size() > kMaxBytes) {
        isBeyondBound = true;
        showComplete(changes);
        return others + payload.size() > kMaxBytes ? Bound::bytes : Bound::topics;
    }
    const Json::Value json = payload::read(branch, payload);
    Topic& topic = isNew ? topics[std::string(branch)] : found->second;
    bytes = others + payload.size();
    topic.payload = payload;
    topic.retrieval = retrieval;
    takeValue(branch, topic, json, isRetained, changes);
    return Bound::none;
}

void FleetDevice::takeValue(std::string_view branch, Topic& topic, const Json::Value& json,
                            bool isRetained, Changes& changes) {
    Json::Value row = shownRow;
    if (branch == kStateTopic) {
        row[kState] = json;
    } else if (branch == kDeviceTopic) {
        if (const auto told = timeOf(json["time"].asString()); isRetained && told) {
            lastHeard = std::min(std::max(lastHeard, *told), WallClock::now());
        }
        takeDevice(json, row, changes);
    } else if (branch == kPtpTopic) {
        changes.push_back({kPtp, named(kPtp, json)});
        meanPathDelay = std::chrono::nanoseconds(json["mean_path_delay_ns"].asInt64());
        row[kPtp]["locked"] = json["locked"];
        row[kPtp]["offset_ns"] = json["offset_ns"];
    } else if (branch.starts_with(kPortTopics)) {
        changes.push_back({"port", named("port", json)});
        topic.isUp = json["up"].asBool();
        row["ports"] = portCounts();
    } else {
        topic.alarms = alarmsOf(json);
        Json::Value data = named("session", json);
        data["status"] = word(healthOf(topic.alarms));
        changes.push_back({"session", std::move(data)});
    }
    show(std::move(row), changes);
}

void FleetDevice::takeDevice(const Json::Value& json, Json::Value& row, Changes& changes) {
    if (json["id"] != deviceJson["id"]) {
        changes.push_back({"device", named("id", json["id"])});
    }
    const Json::Value& before = deviceJson["monitors"];
    for (const char* const name : kMonitors) {
        const Json::Value& monitor = json["monitors"][name];
        if (monitor != before[name]) {
            changes.push_back({"monitor", monitor});
        }
        row[name] = forRow(monitor["status"]);
    }
    row["reason"] = forRow(json["monitors"]["overall"]["message"]);
    row["source"] = forRow(json["source"]["state"]);
    row["id"] = forRow(json["id"]);
    row["sessions"] = json["sessions"];
    row["streams"] = json["streams"];
    for (const char* const severity : AlarmCounts::kNames) {
        row["alarms"][severity] = Json::UInt64{json["alarms"][severity].asUInt64()};
    }
    deviceJson = json;
}

void FleetDevice::remove(Topics::iterator topic, Changes& changes) {
    const std::string branch = topic->first;
    const std::string payload = std::move(topic->second.payload);
    bytes -= payload.size();
    topics.erase(topic);
    Json::Value row = shownRow;
    if (branch == kStateTopic) {
        row[kState] = Json::Value();
    } else if (branch == kDeviceTopic) {
        deviceJson = Json::Value();
        row = emptyRow(row["instance"].asString());
        for (const char* const other : {kState, kPtp, "ports", "complete"}) {
            row[other] = shownRow[other];
        }
    } else if (branch == kPtpTopic) {
        row[kPtp] = Json::Value();
        changes.push_back({kPtp, named(kPtp, Json::Value())});
    } else if (branch.starts_with(kPortTopics)) {
        changes.push_back({"port-removed", named("name", payload::read(branch, payload)["name"])});
        row["ports"] = portCounts();
    } else {
        changes.push_back({"session-removed", named("id", branch.substr(kSessionTopics.size()))});
    }
    show(std::move(row), changes);
}

void FleetDevice::show(Json::Value row, Changes& changes) {
    // The offset changes every second, and has an event of its own.
    const bool hasPtp = row[kPtp].isObject() && shownRow[kPtp].isObject();
    if (hasPtp) {
        shownRow[kPtp]["offset_ns"] = row[kPtp]["offset_ns"];
    }
    if (row == shownRow) {
        return;
    }
    const bool isSourceNew = row[kState] != shownRow[kState] || row["source"] != shownRow["source"];
    shownRow = std::move(row);
    if (isSourceNew) {
        changes.push_back({"source", named("source", source())});
    }
    changes.push_back({"row", named("row", this->row())});
}

void FleetDevice::showComplete(Changes& changes) {
    Json::Value row = shownRow;
    row["complete"] = !isBeyondBound;
    show(std::move(row), changes);
}

void FleetDevice::beginRetrieval() {
    ++retrieval;
    isBeyondBound = false;
}

void FleetDevice::endRetrieval(Changes& changes) {
    showComplete(changes);
    // Where less has come than the device says it has, the rest may have been lost on the way.
    // Where nothing has come there is nothing.
    const auto state = topics.find(kStateTopic);
    const bool isTold = state != topics.end() && state->second.retrieval == retrieval;
    if (isTold && !isWhole()) {
        return;
    }
    for (auto topic = topics.begin(); topic != topics.end();) {
        const auto next = std::next(topic);
        if (topic->second.retrieval != retrieval) {
            remove(topic, changes);
        }
        topic = next;
    }
}

bool FleetDevice::isWhole() const {
    if (isBeyondBound) {
        // Asking again brings no more.
        return true;
    }
    const auto device = topics.find(kDeviceTopic);
    if (device == topics.end() || device->second.retrieval != retrieval) {
        return false;
    }
    std::uint64_t sessions = 0;
    AlarmCounts alarms;
    for (auto topic = topics.lower_bound(kSessionTopics);
         topic != topics.end() && topic->first.starts_with(kSessionTopics); ++topic) {
        if (topic->second.retrieval == retrieval) {
            ++sessions;
            alarms.add(topic->second.alarms);
        }
    }
    const Json::Value& counted = deviceJson["alarms"];
    for (std::size_t i = 0; i < AlarmCounts::severities; ++i) {
        if (counted[AlarmCounts::kNames.at(i)].asUInt64() != alarms.number.at(i)) {
            return false;
        }
    }
    return sessions == deviceJson["sessions"].asUInt64();
}

Json::Value FleetDevice::row() const {
    Json::Value json = shownRow;
    json["heard"] =
        lastHeard == WallClock::time_point() ? Json::Value() : Json::Value(timeText(lastHeard));
    return json;
}

Json::Value FleetDevice::toJson() const {
    Json::Value json;
    Json::Value& device = json["device"];
    device["id"] = deviceJson["id"];
    device[kPtp] = Json::Value();
    device["ports"] = device["sessions"] = Json::Value(Json::arrayValue);
    Json::Value& monitors = json["monitors"] = Json::Value(Json::objectValue);
    for (const char* const name : kMonitors) {
        if (const Json::Value& monitor = deviceJson["monitors"][name]; !monitor.isNull()) {
            monitors[name] = monitor["status"];
        }
    }
    for (const auto& [branch, topic] : topics) {
        if (branch == kPtpTopic) {
            device[kPtp] = payload::read(branch, topic.payload);
        } else if (branch.starts_with(kPortTopics)) {
            device["ports"].append(payload::read(branch, topic.payload));
        } else if (branch.starts_with(kSessionTopics)) {
            device["sessions"].append(payload::read(branch, topic.payload));
            monitors[branch] = word(healthOf(topic.alarms));
        }
    }
    json["source"] = source();
    return json;
}

std::vector<std::pair<std::string, bool>> FleetDevice::ports() const {
    std::vector<std::pair<std::string, bool>> list;
    for (auto topic = topics.lower_bound(kPortTopics);
         topic != topics.end() && topic->first.starts_with(kPortTopics); ++topic) {
        list.emplace_back(
            nameOfLevel(topic->first.substr(kPortTopics.size())).value_or(topic->first),
            topic->second.isUp);
    }
    return list;
}

Json::Value FleetDevice::portCounts() const {
    Json::Value counts;
    counts["up"] = counts["down"] = 0;
    for (const auto& [name, isUp] : ports()) {
        Json::Value& number = counts[isUp ? "up" : "down"];
        number = number.asInt() + 1;
    }
    return counts;
}

/// A device that is not there has told its source's state before it went.
Json::Value FleetDevice::source() const {
    const Json::Value& told = deviceJson["source"];
    Json::Value json;
    const bool isTold = isOnline() && told.isObject();
    json["state"] = isTold ? told["state"] : Json::Value("lost");
    json["since"] = isTold ? told["since"] : Json::Value(timeText(lastHeard));
    const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::max(WallClock::now() - lastHeard, WallClock::duration::zero()));
    json["age_ms"] = Json::Int64{age.count()};
    return json;
}

} // namespace gateway
