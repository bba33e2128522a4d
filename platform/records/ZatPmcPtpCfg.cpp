#include "platform/records/ZatPmcPtpCfg.hpp"

#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

void ZatPmcPtpPortCfg::Serialize(Json::Value& out) const {
    out["portNumber"] = portNumber;
    out["portSetting1"] = portSetting1;
    out["portSetting2"] = portSetting2;
    out["portSetting3"] = portSetting3;
}

void ZatPmcPtpPortCfg::Deserialize(Json::Value& in) {
    portNumber = json_member::truncated<std::int8_t>(in, "portNumber");
    portSetting1 = json_member::truncated<std::uint8_t>(in, "portSetting1");
    portSetting2 = json_member::truncated<std::uint8_t>(in, "portSetting2");
    portSetting3 = json_member::truncated<std::uint8_t>(in, "portSetting3");
}

void ZatPmcPtpCfg::Serialize(Json::Value& out) const {
    out["cfgSetting1"] = cfgSetting1;
    out["cfgSetting2"] = cfgSetting2;
    out["cfgSetting3"] = cfgSetting3;
    out["cfgFlag"] = cfgFlag;
    json_list::write(out, "ports", ports);
}

void ZatPmcPtpCfg::Deserialize(Json::Value& in) {
    cfgSetting1 = json_member::truncated<std::uint8_t>(in, "cfgSetting1");
    cfgSetting2 = json_member::truncated<std::uint8_t>(in, "cfgSetting2");
    cfgSetting3 = json_member::truncated<std::uint8_t>(in, "cfgSetting3");
    cfgFlag = json_member::truncated<std::int32_t>(in, "cfgFlag");
    json_list::read(in, "ports", ports);
}
