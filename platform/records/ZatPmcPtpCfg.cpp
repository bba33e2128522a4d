#include "platform/records/ZatPmcPtpCfg.hpp"

#include "platform/records/JsonFields.hpp"

using json_fields::Field;

namespace {

constexpr std::tuple kPortConfigurationFields{
    Field{"portNumber", &ZatPmcPtpPortCfg::portNumber},
    Field{"portSetting1", &ZatPmcPtpPortCfg::portSetting1},
    Field{"portSetting2", &ZatPmcPtpPortCfg::portSetting2},
    Field{"portSetting3", &ZatPmcPtpPortCfg::portSetting3},
};

constexpr std::tuple kConfigurationFields{
    Field{"cfgSetting1", &ZatPmcPtpCfg::cfgSetting1},
    Field{"cfgSetting2", &ZatPmcPtpCfg::cfgSetting2},
    Field{"cfgSetting3", &ZatPmcPtpCfg::cfgSetting3},
    Field{"cfgFlag", &ZatPmcPtpCfg::cfgFlag},
    Field{"ports", &ZatPmcPtpCfg::ports},
};

} // namespace

void ZatPmcPtpPortCfg::Serialize(Json::Value& out) const {
    json_fields::write(*this, kPortConfigurationFields, out);
}

void ZatPmcPtpPortCfg::Deserialize(Json::Value& in) {
    json_fields::read(*this, kPortConfigurationFields, in);
}

void ZatPmcPtpCfg::Serialize(Json::Value& out) const {
    json_fields::write(*this, kConfigurationFields, out);
}

void ZatPmcPtpCfg::Deserialize(Json::Value& in) {
    json_fields::read(*this, kConfigurationFields, in);
}
