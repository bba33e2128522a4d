#include "gateway/fleet/Payload.hpp"

#include <json/reader.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

namespace gateway::payload {
namespace {

/// Topics of which there are many, one for each name.
constexpr std::string_view kPort = "port/";
constexpr std::string_view kSession = "session/";

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
    return json.isString() || json.isNull();
}

template <typename Fits>
bool isListOf(const Json::Value& json, Fits fits) {
    return json.isArray() && std::all_of(json.begin(), json.end(), fits);
}

bool isAlarm(const Json::Value& json) {
    return json.isObject() && json["severity"].isString() && json["description"].isString() &&
           json["type"].isInt() && isTime(json["since"]);
}

bool isStream(const Json::Value& json) {
    return json.isObject() && json["id"].isString() && isListOf(json["alarms"], isAlarm);
}

bool isId(std::string_view text) {
    constexpr std::size_t kLongest = 20;
    return text.size() <= kLongest &&
           text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool isSession(const Json::Value& json, std::string_view id) {
    return isId(id) && json["id"].isString() && json["id"].asString() == id &&
           json["nmos_id"].isString() && isListOf(json["alarms"], isAlarm) &&
           isListOf(json["streams"], isStream);
}

bool isPtpPort(const Json::Value& json) {
    return json.isObject() && json["number"].isUInt() && json["state"].isString();
}

bool isPtp(const Json::Value& json) {
    const Json::Value& profile = json["profile"];
    return json["locked"].isBool() && json["offset_ns"].isInt64() &&
           json["mean_path_delay_ns"].isInt64() && json["grandmaster_id"].isString() &&
           isTime(json["since"]) && profile.isObject() && profile["name"].isString() &&
           profile["domain"].isUInt() && isListOf(json["ports"], isPtpPort);
}

bool isPort(const Json::Value& json) {
    const Json::Value& sfp = json["sfp"];
    return json["name"].isString() && json["up"].isBool() && json["ip"].isString() &&
           json["speed_mbps"].isUInt64() && isTime(json["since"]) &&
           (sfp.isNull() || (sfp.isObject() && sfp["temperature_c"].isNumeric()));
}

bool isMonitor(const Json::Value& json) {
    return json.isObject() && json["name"].isString() && json["status"].isString() &&
           json["message"].isString() && json["transitions"].isUInt64() && isTime(json["since"]);
}

bool isDevice(const Json::Value& json) {
    const Json::Value& source = json["source"];
    const Json::Value& monitors = json["monitors"];
    const Json::Value& alarms = json["alarms"];
    return json["time"].isString() && isTime(json["id"]) && source.isObject() &&
           source["state"].isString() && source["since"].isString() && monitors.isObject() &&
           isMonitor(monitors["overall"]) && isMonitor(monitors["links"]) &&
           isMonitor(monitors["synchronization"]) && json["sessions"].isUInt64() &&
           json["streams"].isUInt64() && alarms.isObject() &&
           std::all_of(alarms.begin(), alarms.end(),
                       [](const Json::Value& number) { return number.isUInt64(); });
}

bool isAlarmEvent(const Json::Value& json) {
    return json["time"].isString() && json["state"].isString() && json["session"].isString() &&
           isTime(json["stream"]) && isAlarm(json["alarm"]);
}

bool fits(std::string_view branch, const Json::Value& json) {
    if (branch == "device") {
        return isDevice(json);
    }
    if (branch == "ptp") {
        return isPtp(json);
    }
    if (branch == "event/alarm") {
        return isAlarmEvent(json);
    }
    return branch.starts_with(kPort) ? isPort(json)
                                     : isSession(json, branch.substr(kSession.size()));
}

} // namespace

Json::Value read(std::string_view branch, const std::string& text) {
    if (branch == "state") {
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
    constexpr std::array<std::string_view, 4> kSingle = {"state", "device", "ptp", "event/alarm"};
    constexpr std::array<std::string_view, 2> kMany = {kPort, kSession};
    return std::find(kSingle.begin(), kSingle.end(), branch) != kSingle.end() ||
           std::any_of(kMany.begin(), kMany.end(), [branch](std::string_view many) {
               return branch.size() > many.size() && branch.starts_with(many) &&
                      branch.find('/', many.size()) == std::string_view::npos;
           });
}

} // namespace gateway::payload
