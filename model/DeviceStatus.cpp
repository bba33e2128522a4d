#include "model/DeviceStatus.hpp"

#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

namespace {
constexpr JsonKey kSeverity{"severity"};
constexpr JsonKey kDescription{"description"};
constexpr JsonKey kStatusType{"type"};
constexpr JsonKey kStatusId{"id"};
constexpr JsonKey kAlarms{"alarms"};
constexpr JsonKey kNmosId{"nmos_id"};
constexpr JsonKey kDeviceId{"device_id"};
constexpr JsonKey kStream{"stream"};
constexpr JsonKey kSessions{"sessions"};
constexpr JsonKey kPtp{"ptp"};
constexpr JsonKey kEths{"eths"};
} // namespace

void StreamAlarmData::Serialize(Json::Value& out) const {
    out[kSeverity] = severity;
    out[kDescription] = description;
    out[kStatusType] = type;
}

void StreamAlarmData::Deserialize(Json::Value& in) {
    severity = json_member::text(in, kSeverity, "warning");
    description = json_member::text(in, kDescription);
    type = json_member::signed32(in, kStatusType);
}

void StreamStatusData::Serialize(Json::Value& out) const {
    out[kStatusId] = Json::UInt64{id};
    json_list::write(out, kAlarms, alarms);
}

void StreamStatusData::Deserialize(Json::Value& in) {
    id = json_member::unsigned64(in, kStatusId);
    json_list::read(in, kAlarms, alarms);
}

void SessionStatusData::Serialize(Json::Value& out) const {
    out[kStatusId] = Json::UInt64{id};
    out[kNmosId] = nmosId;
    out[kDeviceId] = deviceId;
    json_list::write(out, kAlarms, alarms);
    json_list::write(out, kStream, streams);
}

void SessionStatusData::Deserialize(Json::Value& in) {
    id = json_member::unsigned64(in, kStatusId);
    nmosId = json_member::text(in, kNmosId);
    deviceId = json_member::text(in, kDeviceId);
    json_list::read(in, kAlarms, alarms);
    json_list::read(in, kStream, streams);
}

void WebNotifierDeviceStatus::Serialize(Json::Value& out) const {
    json_list::write(out, kSessions, sessions);
    ptp.Serialize(out[kPtp]);
    out[kDeviceId] = deviceId;
    json_list::write(out, kEths, eths);
}

void WebNotifierDeviceStatus::Deserialize(Json::Value& in) {
    json_list::read(in, kSessions, sessions);
    ptp.Deserialize(in[kPtp]);
    deviceId = json_member::text(in, kDeviceId);
    json_list::read(in, kEths, eths);
}
