#include "platform/records/PtpCommonInfo.hpp"

#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

void PtpProfile::Serialize(Json::Value& out) const {
    out["name"] = name;
    out["domain"] = domain;
    out["announce_interval"] = announceInterval;
    out["sync_interval"] = syncInterval;
    out["delay_req_interval"] = delayReqInterval;
}

void PtpProfile::Deserialize(Json::Value& in) {
    name = json_member::text(in, "name");
    domain = json_member::truncated<std::uint8_t>(in, "domain");
    announceInterval = json_member::truncated<std::int8_t>(in, "announce_interval");
    syncInterval = json_member::truncated<std::int8_t>(in, "sync_interval");
    delayReqInterval = json_member::truncated<std::int8_t>(in, "delay_req_interval");
}

void PtpBasePortInfo::Serialize(Json::Value& out) const {
    out["portNumber"] = portNumber;
    out["state"] = state;
    out["portSetting1"] = portSetting1;
    out["portSetting2"] = portSetting2;
    out["portSetting3"] = portSetting3;
}

void PtpBasePortInfo::Deserialize(Json::Value& in) {
    portNumber = json_member::truncated<std::uint16_t>(in, "portNumber");
    state = json_member::text(in, "state");
    portSetting1 = json_member::truncated<std::uint8_t>(in, "portSetting1");
    portSetting2 = json_member::truncated<std::uint8_t>(in, "portSetting2");
    portSetting3 = json_member::truncated<std::uint8_t>(in, "portSetting3");
}

void PtpCommonInfo::Serialize(Json::Value& out) const {
    out["clock_id"] = clockId;
    out["grandmaster_id"] = grandmasterId;
    out["locked"] = locked;
    out["offset_ns"] = Json::Int64{offsetNs};
    out["mean_path_delay_ns"] = Json::Int64{meanPathDelayNs};
    profile.Serialize(out["profile"]);
    out["cfgSetting1"] = cfgSetting1;
    out["cfgSetting2"] = cfgSetting2;
    out["cfgSetting3"] = cfgSetting3;
    out["cfgFlag"] = cfgFlag;
    json_list::write(out, "ports", ports);
}

void PtpCommonInfo::Deserialize(Json::Value& in) {
    clockId = json_member::text(in, "clock_id");
    grandmasterId = json_member::text(in, "grandmaster_id");
    locked = json_member::boolean(in, "locked");
    offsetNs = json_member::signed64(in, "offset_ns");
    meanPathDelayNs = json_member::signed64(in, "mean_path_delay_ns");
    profile.Deserialize(in["profile"]);
    cfgSetting1 = json_member::truncated<std::uint8_t>(in, "cfgSetting1");
    cfgSetting2 = json_member::truncated<std::uint8_t>(in, "cfgSetting2");
    cfgSetting3 = json_member::truncated<std::uint8_t>(in, "cfgSetting3");
    cfgFlag = json_member::boolean(in, "cfgFlag");
    json_list::read(in, "ports", ports);
}
