#include "platform/records/PtpCommonInfo.hpp"

#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

namespace {
constexpr JsonKey kName{"name"};
constexpr JsonKey kDomain{"domain"};
constexpr JsonKey kAnnounceInterval{"announce_interval"};
constexpr JsonKey kSyncInterval{"sync_interval"};
constexpr JsonKey kDelayReqInterval{"delay_req_interval"};
constexpr JsonKey kPortNumber{"portNumber"};
constexpr JsonKey kState{"state"};
constexpr JsonKey kPortSetting1{"portSetting1"};
constexpr JsonKey kPortSetting2{"portSetting2"};
constexpr JsonKey kPortSetting3{"portSetting3"};
constexpr JsonKey kClockId{"clock_id"};
constexpr JsonKey kGrandmasterId{"grandmaster_id"};
constexpr JsonKey kLocked{"locked"};
constexpr JsonKey kOffsetNs{"offset_ns"};
constexpr JsonKey kMeanPathDelayNs{"mean_path_delay_ns"};
constexpr JsonKey kProfile{"profile"};
constexpr JsonKey kCfgSetting1{"cfgSetting1"};
constexpr JsonKey kCfgSetting2{"cfgSetting2"};
constexpr JsonKey kCfgSetting3{"cfgSetting3"};
constexpr JsonKey kCfgFlag{"cfgFlag"};
constexpr JsonKey kPorts{"ports"};
} // namespace

void PtpProfile::Serialize(Json::Value& out) const {
    out[kName] = name;
    out[kDomain] = domain;
    out[kAnnounceInterval] = announceInterval;
    out[kSyncInterval] = syncInterval;
    out[kDelayReqInterval] = delayReqInterval;
}

void PtpProfile::Deserialize(Json::Value& in) {
    name = json_member::text(in, kName);
    domain = json_member::truncated<std::uint8_t>(in, kDomain);
    announceInterval = json_member::truncated<std::int8_t>(in, kAnnounceInterval);
    syncInterval = json_member::truncated<std::int8_t>(in, kSyncInterval);
    delayReqInterval = json_member::truncated<std::int8_t>(in, kDelayReqInterval);
}

void PtpBasePortInfo::Serialize(Json::Value& out) const {
    out[kPortNumber] = portNumber;
    out[kState] = state;
    out[kPortSetting1] = portSetting1;
    out[kPortSetting2] = portSetting2;
    out[kPortSetting3] = portSetting3;
}

void PtpBasePortInfo::Deserialize(Json::Value& in) {
    portNumber = json_member::truncated<std::uint16_t>(in, kPortNumber);
    state = json_member::text(in, kState);
    portSetting1 = json_member::truncated<std::uint8_t>(in, kPortSetting1);
    portSetting2 = json_member::truncated<std::uint8_t>(in, kPortSetting2);
    portSetting3 = json_member::truncated<std::uint8_t>(in, kPortSetting3);
}

void PtpCommonInfo::Serialize(Json::Value& out) const {
    out[kClockId] = clockId;
    out[kGrandmasterId] = grandmasterId;
    out[kLocked] = locked;
    out[kOffsetNs] = Json::Int64{offsetNs};
    out[kMeanPathDelayNs] = Json::Int64{meanPathDelayNs};
    profile.Serialize(out[kProfile]);
    out[kCfgSetting1] = cfgSetting1;
    out[kCfgSetting2] = cfgSetting2;
    out[kCfgSetting3] = cfgSetting3;
    out[kCfgFlag] = cfgFlag;
    json_list::write(out, kPorts, ports);
}

void PtpCommonInfo::Deserialize(Json::Value& in) {
    clockId = json_member::text(in, kClockId);
    grandmasterId = json_member::text(in, kGrandmasterId);
    locked = json_member::boolean(in, kLocked);
    offsetNs = json_member::signed64(in, kOffsetNs);
    meanPathDelayNs = json_member::signed64(in, kMeanPathDelayNs);
    profile.Deserialize(in[kProfile]);
    cfgSetting1 = json_member::truncated<std::uint8_t>(in, kCfgSetting1);
    cfgSetting2 = json_member::truncated<std::uint8_t>(in, kCfgSetting2);
    cfgSetting3 = json_member::truncated<std::uint8_t>(in, kCfgSetting3);
    cfgFlag = json_member::boolean(in, kCfgFlag);
    json_list::read(in, kPorts, ports);
}
