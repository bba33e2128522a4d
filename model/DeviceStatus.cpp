#include "model/DeviceStatus.hpp"

#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

void StreamAlarmData::Serialize(Json::Value& out) const {
    out["severity"] = severity;
    out["description"] = description;
    out["type"] = type;
}

void StreamAlarmData::Deserialize(Json::Value& in) {
    severity = json_member::text(in, "severity", "warning");
    description = json_member::text(in, "description");
    type = json_member::signed32(in, "type");
}

void StreamStatusData::Serialize(Json::Value& out) const {
    out["id"] = Json::UInt64{id};
    json_list::write(out, "alarms", alarms);
}

void StreamStatusData::Deserialize(Json::Value& in) {
    id = json_member::unsigned64(in, "id");
    json_list::read(in, "alarms", alarms);
}

void SessionStatusData::Serialize(Json::Value& out) const {
    out["id"] = Json::UInt64{id};
    out["nmos_id"] = nmosId;
    out["device_id"] = deviceId;
    json_list::write(out, "alarms", alarms);
    json_list::write(out, "stream", streams);
}

void SessionStatusData::Deserialize(Json::Value& in) {
    id = json_member::unsigned64(in, "id");
    nmosId = json_member::text(in, "nmos_id");
    deviceId = json_member::text(in, "device_id");
    json_list::read(in, "alarms", alarms);
    json_list::read(in, "stream", streams);
}

void WebNotifierDeviceStatus::Serialize(Json::Value& out) const {
    json_list::write(out, "sessions", sessions);
    ptp.Serialize(out["ptp"]);
    out["device_id"] = deviceId;
    json_list::write(out, "eths", eths);
}

void WebNotifierDeviceStatus::Deserialize(Json::Value& in) {
    json_list::read(in, "sessions", sessions);
    ptp.Deserialize(in["ptp"]);
    deviceId = json_member::text(in, "device_id");
    json_list::read(in, "eths", eths);
}
