#pragma once

#include "gateway/MqttClient.hpp"

#include <json/value.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace devices {

using Messages = std::vector<gateway::MqttMessage>;

/// A device as its gateway would publish it: two ports, a clock, sessions of two streams each.
class PlayedDevice {
public:
    /// Equal seeds play equal devices.
    PlayedDevice(std::string instance, std::size_t sessions, unsigned seed);

    /// Every document, "online" last.
    Messages everything() const;

    /// One thing changes: mostly the clock, sometimes a port's temperature, now and then an alarm.
    Messages change();

    /// The summary, which is sent now and then without a change, too.
    gateway::MqttMessage summary() const;

    /// What takes every document away.
    Messages nothing() const;

private:
    gateway::MqttMessage document(const std::string& topic, const Json::Value& json) const;
    gateway::MqttMessage portDocument(std::size_t index) const;
    gateway::MqttMessage sessionDocument(std::size_t index) const;
    Messages changeAlarm();
    unsigned draw(unsigned number);

    std::string branch;
    std::string id;
    std::minstd_rand random;
    Json::Value ptp;
    std::vector<Json::Value> ports;
    std::vector<Json::Value> sessions;
    std::size_t alarms = 0;
};

} // namespace devices
