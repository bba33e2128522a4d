#include "platform/records/ZatPmcPtpCfg.hpp"

#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

namespace {
constexpr JsonKey kPortNumber{"portNumber"};
constexpr JsonKey kPortSetting1{"portSetting1"};
constexpr JsonKey kPortSetting2{"portSetting2"};
constexpr JsonKey kPortSetting3{"portSetting3"};
constexpr JsonKey kCfgSetting1{"cfgSetting1"};
constexpr JsonKey kCfgSetting2{"cfgSetting2"};
constexpr JsonKey kCfgSetting3{"cfgSetting3"};
constexpr JsonKey kCfgFlag{"cfgFlag"};
constexpr JsonKey kPorts{"ports"};
} // namespace

void ZatPmcPtpPortCfg::Serialize(Json::Value& out) const {
    out[kPortNumber] = portNumber;
    out[kPortSetting1] = portSetting1;
    out[kPortSetting2] = portSetting2;
    out[kPortSetting3] = portSetting3;
}

void ZatPmcPtpPortCfg::Deserialize(Json::Value& in) {
    portNumber = json_member::truncated<std::int8_t>(in, kPortNumber);
    portSetting1 = json_member::truncated<std::uint8_t>(in, kPortSetting1);
    portSetting2 = json_member::truncated<std::uint8_t>(in, kPortSetting2);
    portSetting3 = json_member::truncated<std::uint8_t>(in, kPortSetting3);
}

void ZatPmcPtpCfg::Serialize(Json::Value& out) const {
    out[kCfgSetting1] = cfgSetting1;
    out[kCfgSetting2] = cfgSetting2;
    out[kCfgSetting3] = cfgSetting3;
    out[kCfgFlag] = cfgFlag;
    json_list::write(out, kPorts, ports);
}

void ZatPmcPtpCfg::Deserialize(Json::Value& in) {
    cfgSetting1 = json_member::truncated<std::uint8_t>(in, kCfgSetting1);
    cfgSetting2 = json_member::truncated<std::uint8_t>(in, kCfgSetting2);
    cfgSetting3 = json_member::truncated<std::uint8_t>(in, kCfgSetting3);
    cfgFlag = json_member::truncated<std::int32_t>(in, kCfgFlag);
    json_list::read(in, kPorts, ports);
}
