#include "gateway/fleet/Payload.hpp"

#include "gateway/Monitors.hpp"
#include "gateway/Source.hpp"
#include "gateway/TopicText.hpp"

#include <json/reader.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

namespace gateway::payload {
namespace {

Json::Value parse(const std::string& text) {
    static const std::unique_ptr<Json::CharReader> reader([] {
        Json::CharReaderBuilder builder;
        Json::CharReaderBuilder::strictMode(&builder.settings_);
        constexpr int kDeepest = 16;
        builder["stackLimit"] = kDeepest;
        return builder.newCharReader();
    }());
    Json::Value value;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
        throw Json::RuntimeError("it is not JSON: " + errors.substr(0, errors.find('\n')));
    }
    return value;
}

bool isTime(const Json::Value& json) {
    constexpr std::string_view kShape = "0000-00-00T00:00:00.000Z";
    const std::string text = json.isString() ? json.asString() : "";
    return std::equal(
        text.begin(), text.end(), kShape.begin(), kShape.end(),
        [](char c, char shape) { return shape == '0' ? c >= '0' && c <= '9' : c == shape; });
}

bool isSince(const Json::Value& json) {
    return json.isNull() || isTime(json);
}

template <typename Fits>
bool isListOf(const Json::Value& json, Fits fits) {
    return json.isArray() && std::all_of(json.begin(), json.end(), fits);
}

bool isAlarm(const Json::Value& json) {
    return json.isObject() && json["severity"].isString() && json["description"].isString() &&
           json["type"].isInt() && isSince(json["since"]);
}

bool isId(const Json::Value& json) {
    constexpr std::size_t kLongest = 20;
    const std::string text = json.isString() ? json.asString() : "";
    return !text.empty() && text.size() <= kLongest &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

bool isStream(const Json::Value& json) {
    return json.isObject() && isId(json["id"]) && isListOf(json["alarms"], isAlarm);
}

bool isSession(const Json::Value& json, std::string_view id) {
    return isId(json["id"]) && json["id"].asString() == id && json["nmos_id"].isString() &&
           isListOf(json["alarms"], isAlarm) && isListOf(json["streams"], isStream);
}

bool isPtpPort(const Json::Value& json) {
    return json.isObject() && json["number"].isUInt() && json["state"].isString();
}

bool isPtp(const Json::Value& json) {
    const Json::Value& profile = json["profile"];
    return json["locked"].isBool() && json["offset_ns"].isInt64() &&
           json["mean_path_delay_ns"].isInt64() && json["grandmaster_id"].isString() &&
           isSince(json["since"]) && profile.isObject() && profile["name"].isString() &&
           profile["domain"].isUInt() && isListOf(json["ports"], isPtpPort);
}

bool isPort(const Json::Value& json) {
    const Json::Value& sfp = json["sfp"];
    return json["name"].isString() && json["up"].isBool() && json["ip"].isString() &&
           json["speed_mbps"].isUInt64() && isSince(json["since"]) &&
           (sfp.isNull() || (sfp.isObject() && sfp["temperature_c"].isNumeric()));
}

bool isMonitor(const Json::Value& json, const char* name) {
    return json.isObject() && json["name"] == name && json["status"].isString() &&
           healthOf(json["status"].asString()) && json["message"].isString() &&
           json["transitions"].isUInt64() && isSince(json["since"]);
}

bool isDevice(const Json::Value& json) {
    const Json::Value& source = json["source"];
    const Json::Value& monitors = json["monitors"];
    const Json::Value& alarms = json["alarms"];
    constexpr std::array kMonitorNames = {"overall", "links", "synchronization"};
    return isTime(json["time"]) && (json["id"].isNull() || json["id"].isString()) &&
           source.isObject() && source["state"].isString() &&
           isSourceWord(source["state"].asString()) && isTime(source["since"]) &&
           monitors.isObject() &&
           std::all_of(kMonitorNames.begin(), kMonitorNames.end(),
                       [&](const char* name) { return isMonitor(monitors[name], name); }) &&
           json["sessions"].isUInt64() && json["streams"].isUInt64() && alarms.isObject() &&
           std::all_of(alarms.begin(), alarms.end(),
                       [](const Json::Value& number) { return number.isUInt64(); });
}

bool isAlarmEvent(const Json::Value& json) {
    return isTime(json["time"]) && (json["state"] == "raised" || json["state"] == "cleared") &&
           isId(json["session"]) && (json["stream"].isNull() || isId(json["stream"])) &&
           isAlarm(json["alarm"]);
}

bool fits(std::string_view branch, const Json::Value& json) {
    if (branch == kDeviceTopic) {
        return isDevice(json);
    }
    if (branch == kPtpTopic) {
        return isPtp(json);
    }
    if (branch == kAlarmTopic) {
        return isAlarmEvent(json);
    }
    return branch.starts_with(kPortTopics) ? isPort(json)
                                           : isSession(json, branch.substr(kSessionTopics.size()));
}

} // namespace

Json::Value read(std::string_view branch, const std::string& text) {
    if (branch == kStateTopic) {
        if (text != "online" && text != "offline") {
            throw Json::RuntimeError("it is neither online nor offline");
        }
        return text;
    }
    Json::Value json = parse(text);
    if (!json.isObject() || !fits(branch, json)) {
        throw Json::RuntimeError("it does not have the members that belong there");
    }
    return json;
}

bool isBranch(std::string_view branch) {
    constexpr std::array<std::string_view, 4> kSingle = {kStateTopic, kDeviceTopic, kPtpTopic,
                                                         kAlarmTopic};
    constexpr std::array<std::string_view, 2> kMany = {kPortTopics, kSessionTopics};
    return std::find(kSingle.begin(), kSingle.end(), branch) != kSingle.end() ||
           std::any_of(kMany.begin(), kMany.end(), [branch](std::string_view many) {
               return branch.size() > many.size() && branch.starts_with(many) &&
                      branch.find('/', many.size()) == std::string_view::npos;
           });
}

} // namespace gateway::payload
