#include "tools/kaikla-devices/PlayedDevice.hpp"

#include "gateway/ApiText.hpp"
#include "gateway/TopicText.hpp"
#include "tools/client/ServiceConnection.hpp"

#include <utility>

namespace devices {
namespace {

using gateway::MqttMessage;

constexpr double kUsualTemperatureC = 38;
constexpr unsigned kPercent = 100;

std::string now() {
    return gateway::timeText(gateway::WallClock::now());
}

Json::Value monitor(const char* name, const char* status, const std::string& message) {
    Json::Value json;
    json["name"] = name;
    json["status"] = status;
    json["message"] = message;
    json["transitions"] = 0;
    json["since"] = Json::Value();
    return json;
}

constexpr const char* kPtp = R"({
    "clock_id": "08-00-11-ff-fe-21-e1-b0", "grandmaster_id": "08-00-11-ff-fe-00-00-01",
    "locked": true, "since": null, "offset_ns": 0, "mean_path_delay_ns": 800,
    "profile": {"name": "SMPTE ST 2059-2", "domain": 127, "announce_interval_log2_s": -2,
                "sync_interval_log2_s": -3, "delay_req_interval_log2_s": -3},
    "config": {"setting1": 0, "setting2": 0, "setting3": 0, "flag": false},
    "ports": [{"number": 1, "state": "SLAVE", "setting1": 0, "setting2": 0, "setting3": 0}]})";

constexpr const char* kPort = R"({
    "mac": "08:00:11:21:e1:b0", "up": true, "since": null, "ip": "192.0.2.10",
    "speed_mbps": 25000,
    "sfp": {"vendor": "Example", "part_number": "SFP28-SR", "serial": "A1",
            "temperature_c": 38.0, "tx_power_dbm": -1.8, "rx_power_dbm": -2.1}})";

constexpr const char* kSession = R"({
    "nmos_id": "5f0d8a3c-2e67-4a55-8f0b-6f9c0f4c7a11", "alarms": [],
    "streams": [{"id": "1", "alarms": []}, {"id": "2", "alarms": []}]})";

constexpr const char* kSummary = R"({
    "source": {"state": "live", "age_ms": 0}, "monitors": {},
    "alarms": {"critical": 0, "major": 0, "minor": 0, "warning": 0, "other": 0}})";

constexpr const char* kAlarm = R"({
    "severity": "major", "description": "no RTP packets received", "type": 3})";

Json::Value object(const char* text, const char* key, const std::string& value) {
    Json::Value json = client::readObject(text);
    json[key] = value;
    return json;
}

} // namespace

PlayedDevice::PlayedDevice(std::string instance, std::size_t sessionCount, unsigned seed)
    : branch(gateway::topicBranch(instance)), id(std::move(instance)), random(seed),
      ptp(client::readObject(kPtp)), ports{object(kPort, "name", "eth0"),
                                           object(kPort, "name", "eth1")} {
    for (std::size_t number = 1; number <= sessionCount; ++number) {
        sessions.push_back(object(kSession, "id", std::to_string(number)));
    }
}

Messages PlayedDevice::everything() const {
    Messages messages = {summary(), document(gateway::kPtpTopic, ptp)};
    for (std::size_t i = 0; i < ports.size(); ++i) {
        messages.push_back(portDocument(i));
    }
    for (std::size_t i = 0; i < sessions.size(); ++i) {
        messages.push_back(sessionDocument(i));
    }
    messages.push_back({branch + gateway::kStateTopic, "online", true});
    return messages;
}

Messages PlayedDevice::nothing() const {
    Messages messages = everything();
    for (MqttMessage& message : messages) {
        message.payload.clear();
    }
    return messages;
}

Messages PlayedDevice::change() {
    constexpr unsigned kPtpShare = 85;
    constexpr unsigned kAlarmShare = 3;
    const unsigned kind = draw(kPercent);
    if (kind < kPtpShare) {
        constexpr int kLargestOffsetNs = 50;
        ptp["offset_ns"] = static_cast<int>(draw(2 * kLargestOffsetNs)) - kLargestOffsetNs;
        return {document(gateway::kPtpTopic, ptp)};
    }
    if (kind < kPtpShare + kAlarmShare && !sessions.empty()) {
        return changeAlarm();
    }
    const auto index = std::size_t{draw(static_cast<unsigned>(ports.size()))};
    constexpr double kStep = 0.25;
    ports[index]["sfp"]["temperature_c"] = kUsualTemperatureC + kStep * draw(10);
    return {portDocument(index)};
}

Messages PlayedDevice::changeAlarm() {
    const auto index = std::size_t{draw(static_cast<unsigned>(sessions.size()))};
    Json::Value& stream = sessions[index]["streams"][draw(2)];
    Json::Value event;
    event["time"] = now();
    event["session"] = sessions[index]["id"];
    event["stream"] = stream["id"];
    // What is raised is cleared before another is: most devices are well.
    const bool isCleared = !stream["alarms"].empty();
    if (isCleared) {
        event["alarm"] = stream["alarms"][0];
        stream["alarms"] = Json::Value(Json::arrayValue);
        --alarms;
    } else if (alarms > 0) {
        ptp["offset_ns"] = 0;
        return {document(gateway::kPtpTopic, ptp)};
    } else {
        event["alarm"] = stream["alarms"].append(object(kAlarm, "since", now()));
        ++alarms;
    }
    event["state"] = isCleared ? "cleared" : "raised";
    return {MqttMessage{branch + gateway::kAlarmTopic, gateway::jsonText(event), false},
            sessionDocument(index), summary()};
}

MqttMessage PlayedDevice::summary() const {
    Json::Value json = object(kSummary, "time", now());
    json["epoch"] = "00000000";
    json["id"] = id;
    json["source"]["since"] = json["time"];
    const bool isWell = alarms == 0;
    json["monitors"]["overall"] =
        monitor("overall", isWell ? "healthy" : "unhealthy",
                isWell ? "everything is well" : "major: no RTP packets received (3)");
    json["monitors"]["links"] = monitor("links", "all-up", "every port is up");
    json["monitors"]["synchronization"] = monitor("synchronization", "healthy", "PTP is locked");
    json["sessions"] = Json::UInt64{sessions.size()};
    json["streams"] = Json::UInt64{2 * sessions.size()};
    json["alarms"]["major"] = Json::UInt64{alarms};
    return document(gateway::kDeviceTopic, json);
}

MqttMessage PlayedDevice::document(const std::string& topic, const Json::Value& json) const {
    return {branch + topic, gateway::jsonText(json), true};
}

MqttMessage PlayedDevice::portDocument(std::size_t index) const {
    return document(gateway::portTopic(ports[index]["name"].asString()), ports[index]);
}

MqttMessage PlayedDevice::sessionDocument(std::size_t index) const {
    return document(gateway::sessionTopic(sessions[index]["id"].asString()), sessions[index]);
}

unsigned PlayedDevice::draw(unsigned number) {
    return static_cast<unsigned>(random()) % number;
}

} // namespace devices
