#include "platform/records/PtpCommonInfo.hpp"

#include "platform/records/JsonFields.hpp"

using json_fields::Field;

namespace {

constexpr std::tuple kProfileFields{
    Field{"name", &PtpProfile::name},
    Field{"domain", &PtpProfile::domain},
    Field{"announce_interval", &PtpProfile::announceInterval},
    Field{"sync_interval", &PtpProfile::syncInterval},
    Field{"delay_req_interval", &PtpProfile::delayReqInterval},
};

constexpr std::tuple kPtpPortFields{
    Field{"portNumber", &PtpBasePortInfo::portNumber},
    Field{"state", &PtpBasePortInfo::state},
    Field{"portSetting1", &PtpBasePortInfo::portSetting1},
    Field{"portSetting2", &PtpBasePortInfo::portSetting2},
    Field{"portSetting3", &PtpBasePortInfo::portSetting3},
};

constexpr std::tuple kPtpFields{
    Field{"clock_id", &PtpCommonInfo::clockId},
    Field{"grandmaster_id", &PtpCommonInfo::grandmasterId},
    Field{"locked", &PtpCommonInfo::locked},
    Field{"offset_ns", &PtpCommonInfo::offsetNs},
    Field{"mean_path_delay_ns", &PtpCommonInfo::meanPathDelayNs},
    Field{"profile", &PtpCommonInfo::profile},
    Field{"cfgSetting1", &PtpCommonInfo::cfgSetting1},
    Field{"cfgSetting2", &PtpCommonInfo::cfgSetting2},
    Field{"cfgSetting3", &PtpCommonInfo::cfgSetting3},
    Field{"cfgFlag", &PtpCommonInfo::cfgFlag},
    Field{"ports", &PtpCommonInfo::ports},
};

} // namespace

void PtpProfile::Serialize(Json::Value& out) const {
    json_fields::write(*this, kProfileFields, out);
}

void PtpProfile::Deserialize(Json::Value& in) {
    json_fields::read(*this, kProfileFields, in);
}

void PtpBasePortInfo::Serialize(Json::Value& out) const {
    json_fields::write(*this, kPtpPortFields, out);
}

void PtpBasePortInfo::Deserialize(Json::Value& in) {
    json_fields::read(*this, kPtpPortFields, in);
}

void PtpCommonInfo::Serialize(Json::Value& out) const {
    json_fields::write(*this, kPtpFields, out);
}

void PtpCommonInfo::Deserialize(Json::Value& in) {
    json_fields::read(*this, kPtpFields, in);
}
