#include "gateway/DeviceState.hpp"

#include <algorithm>
#include <set>
#include <utility>

namespace gateway {
namespace {

std::size_t severityOf(std::string_view word) {
    const auto* const found =
        std::find(AlarmCounts::kNames.begin(), AlarmCounts::kNames.end(), word);
    return std::min<std::size_t>(static_cast<std::size_t>(found - AlarmCounts::kNames.begin()),
                                 AlarmCounts::other);
}

bool isSameAlarm(const Json::Value& json, const StreamAlarmData& alarm) {
    return json["type"].asInt() == alarm.type && json["severity"].asString() == alarm.severity &&
           json["description"].asString() == alarm.description;
}

/// An alarm that was there already keeps its "since".
Json::Value alarmsJson(const std::list<StreamAlarmData>& alarms, const Json::Value& before,
                       const Json::Value& now) {
    Json::Value list(Json::arrayValue);
    for (const StreamAlarmData& alarm : alarms) {
        Json::Value json;
        json["severity"] = alarm.severity;
        json["description"] = alarm.description;
        json["type"] = alarm.type;
        json["since"] = now;
        for (const Json::Value& old : before) {
            if (isSameAlarm(old, alarm)) {
                json["since"] = old["since"];
                break;
            }
        }
        list.append(std::move(json));
    }
    return list;
}

/// Counts a record's alarms and keeps the worst one's sentence.
class AlarmSummary {
public:
    explicit AlarmSummary(DeviceState::Session& entry) : session(entry) {}

    void add(const std::list<StreamAlarmData>& alarms, const std::string& where) {
        for (const StreamAlarmData& alarm : alarms) {
            session.alarms.add(alarm.severity);
            // An unknown word may mean anything: it comes between "major" and "minor".
            constexpr std::size_t kUnknownRank = 2 * AlarmCounts::major + 1;
            const std::size_t severity = severityOf(alarm.severity);
            const std::size_t rank = severity == AlarmCounts::other ? kUnknownRank : 2 * severity;
            if (rank < worstRank) {
                worstRank = rank;
                session.worst = where + alarm.severity + ": " + alarm.description + " (" +
                                std::to_string(alarm.type) + ")";
            }
        }
    }

private:
    DeviceState::Session& session;
    std::size_t worstRank = 2 * AlarmCounts::severities;
};

/// Streams nearly always keep their order: the one at `index` is looked at first.
const Json::Value& streamWithId(const Json::Value& session, const std::string& id,
                                Json::ArrayIndex index) {
    const Json::Value& streams = session["streams"];
    if (index < streams.size() && streams[index]["id"].asString() == id) {
        return streams[index];
    }
    for (const Json::Value& stream : streams) {
        if (stream["id"].asString() == id) {
            return stream;
        }
    }
    return Json::Value::nullSingleton();
}

DeviceState::Session sessionEntry(const SessionStatusData& record, const Json::Value& before,
                                  const Json::Value& now) {
    DeviceState::Session entry;
    AlarmSummary summary(entry);
    entry.json["id"] = std::to_string(record.id);
    entry.json["nmos_id"] = record.nmosId;
    entry.json["alarms"] = alarmsJson(record.alarms, before["alarms"], now);
    summary.add(record.alarms, "");
    Json::Value& streams = entry.json["streams"] = Json::Value(Json::arrayValue);
    for (const StreamStatusData& stream : record.streams) {
        Json::Value json;
        const std::string id = std::to_string(stream.id);
        json["id"] = id;
        json["alarms"] =
            alarmsJson(stream.alarms, streamWithId(before, id, streams.size())["alarms"], now);
        summary.add(stream.alarms, "stream " + id + ": ");
        streams.append(std::move(json));
    }
    entry.streams = record.streams.size();
    return entry;
}

Json::Value profileJson(const PtpProfile& profile) {
    Json::Value json;
    json["name"] = profile.name;
    json["domain"] = profile.domain;
    json["announce_interval_log2_s"] = profile.announceInterval;
    json["sync_interval_log2_s"] = profile.syncInterval;
    json["delay_req_interval_log2_s"] = profile.delayReqInterval;
    return json;
}

void putSettings(Json::Value& json, unsigned one, unsigned two, unsigned three) {
    json["setting1"] = one;
    json["setting2"] = two;
    json["setting3"] = three;
}

Json::Value ptpToJson(const PtpCommonInfo& ptp) {
    Json::Value json;
    json["clock_id"] = ptp.clockId;
    json["grandmaster_id"] = ptp.grandmasterId;
    json["locked"] = ptp.locked;
    json["offset_ns"] = Json::Int64{ptp.offsetNs};
    json["mean_path_delay_ns"] = Json::Int64{ptp.meanPathDelayNs};
    json["profile"] = profileJson(ptp.profile);
    Json::Value& config = json["config"];
    putSettings(config, ptp.cfgSetting1, ptp.cfgSetting2, ptp.cfgSetting3);
    config["flag"] = ptp.cfgFlag;
    Json::Value& ports = json["ports"] = Json::Value(Json::arrayValue);
    for (const PtpBasePortInfo& port : ptp.ports) {
        Json::Value portJson;
        portJson["number"] = port.portNumber;
        portJson["state"] = port.state;
        putSettings(portJson, port.portSetting1, port.portSetting2, port.portSetting3);
        ports.append(std::move(portJson));
    }
    return json;
}

/// The service writes a record of defaults while the PTP management service has not been heard.
bool hasBeenReported(const PtpCommonInfo& ptp) {
    return !ptp.clockId.empty() || !ptp.grandmasterId.empty() || ptp.locked || !ptp.ports.empty();
}

Json::Value portToJson(const EthBasicInfo& eth) {
    Json::Value json;
    json["name"] = eth.name;
    json["mac"] = eth.mac;
    json["up"] = eth.state == 1;
    json["ip"] = eth.ip;
    json["speed_mbps"] = eth.speedMbps;
    Json::Value& sfp = json["sfp"];
    if (eth.sfp.present) {
        sfp["vendor"] = eth.sfp.vendor;
        sfp["part_number"] = eth.sfp.partNumber;
        sfp["serial"] = eth.sfp.serial;
        sfp["temperature_c"] = eth.sfp.temperatureC;
        sfp["tx_power_dbm"] = eth.sfp.txPowerDbm;
        sfp["rx_power_dbm"] = eth.sfp.rxPowerDbm;
    }
    return json;
}

Json::Value named(const char* name, Json::Value value) {
    Json::Value data;
    data[name] = std::move(value);
    return data;
}

} // namespace

void AlarmCounts::add(std::string_view severity) {
    ++number.at(severityOf(severity));
}

void AlarmCounts::add(const AlarmCounts& more) {
    std::transform(number.begin(), number.end(), more.number.begin(), number.begin(),
                   std::plus<>());
}

Json::Value DeviceState::now() const {
    return isKnown ? Json::Value(timeText(WallClock::now())) : Json::Value();
}

DeviceState::Changes DeviceState::takeStatus(const WebNotifierDeviceStatus& status) {
    const std::uint64_t before = message++;
    Changes changes = takeAnswer(status, before);
    wholeMessage = message;
    return changes;
}

DeviceState::Changes DeviceState::takeSession(const SessionStatusData& session) {
    Changes changes;
    ++message;
    takeDeviceId(session.deviceId, changes);
    takeOneSession(session, changes);
    return changes;
}

DeviceState::Changes DeviceState::takeAnswer(const WebNotifierDeviceStatus& status,
                                             std::uint64_t requested) {
    Changes changes;
    if (wholeMessage > requested) {
        return changes;
    }
    takeDeviceId(status.deviceId, changes);
    takePtp(status.ptp, changes);
    takePorts(status.eths, changes);
    takeAllSessions(status.sessions, requested, changes);
    isKnown = true;
    return changes;
}

const Json::Value* DeviceState::session(std::uint64_t sessionId) const {
    const auto found = sessionsById.find(sessionId);
    return found == sessionsById.end() ? nullptr : &found->second.json;
}

DeviceState::Totals DeviceState::totals() const {
    Totals totals;
    for (const auto& [sessionId, entry] : sessionsById) {
        ++totals.sessions;
        totals.streams += entry.streams;
        totals.alarms.add(entry.alarms);
    }
    return totals;
}

Json::Value DeviceState::toJson() const {
    Json::Value json;
    if (!isKnown) {
        return json;
    }
    json["id"] = id.empty() ? Json::Value() : Json::Value(id);
    json["ptp"] = ptpJson;
    Json::Value& portList = json["ports"] = Json::Value(Json::arrayValue);
    for (const auto& [name, port] : portsByName) {
        portList.append(port);
    }
    Json::Value& sessionList = json["sessions"] = Json::Value(Json::arrayValue);
    for (const auto& [sessionId, entry] : sessionsById) {
        sessionList.append(entry.json);
    }
    return json;
}

void DeviceState::takeDeviceId(const std::string& deviceId, Changes& changes) {
    if (!deviceId.empty() && deviceId != id) {
        id = deviceId;
        changes.push_back({"device", named("id", id)});
    }
}

void DeviceState::takeOneSession(const SessionStatusData& record, Changes& changes) {
    Session& entry = sessionsById[record.id];
    Session next = sessionEntry(record, entry.json, now());
    Json::Value before = std::move(entry.json);
    entry = std::move(next);
    entry.message = message;
    if (entry.json != before) {
        changes.push_back({"session", named("session", entry.json), std::move(before)});
    }
}

void DeviceState::takePtp(const PtpCommonInfo& ptp, Changes& changes) {
    if (!hasBeenReported(ptp)) {
        return;
    }
    Json::Value next = ptpToJson(ptp);
    const bool isFirst = ptpJson.isNull();
    next["since"] = !isFirst && ptpJson["locked"] == next["locked"] ? ptpJson["since"] : now();
    if (!isFirst && ptpJson["grandmaster_id"] != next["grandmaster_id"]) {
        ++grandmasterChangeCount;
        lastGrandmasterChange = Clock::now();
    }
    if (next != ptpJson) {
        ptpJson = std::move(next);
        changes.push_back({"ptp", named("ptp", ptpJson)});
    }
}

void DeviceState::takePorts(const std::list<EthBasicInfo>& eths, Changes& changes) {
    std::map<std::string, Json::Value> next;
    for (const EthBasicInfo& eth : eths) {
        Json::Value& port = next[eth.name];
        port = portToJson(eth);
        const auto old = portsByName.find(eth.name);
        const bool isSame = old != portsByName.end() && old->second["up"] == port["up"];
        port["since"] = isSame ? old->second["since"] : now();
        if (old == portsByName.end() || old->second != port) {
            changes.push_back({"port", named("port", port)});
        }
    }
    for (const auto& [name, port] : portsByName) {
        if (!next.contains(name)) {
            changes.push_back({"port-removed", named("name", name)});
        }
    }
    portsByName = std::move(next);
}

void DeviceState::takeAllSessions(const std::list<SessionStatusData>& records,
                                  std::uint64_t requested, Changes& changes) {
    const auto isNewer = [requested](const Session& entry) { return entry.message > requested; };
    std::set<std::uint64_t> present;
    for (const SessionStatusData& record : records) {
        present.insert(record.id);
        const auto old = sessionsById.find(record.id);
        if (old == sessionsById.end() || !isNewer(old->second)) {
            takeOneSession(record, changes);
        }
    }
    std::erase_if(sessionsById, [&](const auto& item) {
        const auto& [sessionId, entry] = item;
        const bool isGone = !present.contains(sessionId) && !isNewer(entry);
        if (isGone) {
            changes.push_back(
                {"session-removed", named("id", std::to_string(sessionId)), entry.json});
        }
        return isGone;
    });
}

} // namespace gateway
