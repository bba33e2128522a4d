#include "platform/records/SysParametersDynamic.hpp"

#include "platform/records/JsonFields.hpp"

using json_fields::Field;

namespace {

constexpr std::tuple kSfpFields{
    Field{"present", &SfpInfo::present},
    Field{"vendor", &SfpInfo::vendor},
    Field{"part_number", &SfpInfo::partNumber},
    Field{"serial", &SfpInfo::serial},
    Field{"temperature_c", &SfpInfo::temperatureC},
    Field{"tx_power_dbm", &SfpInfo::txPowerDbm},
    Field{"rx_power_dbm", &SfpInfo::rxPowerDbm},
};

constexpr std::tuple kEthFields{
    Field{"name", &EthBasicInfo::name},
    Field{"mac", &EthBasicInfo::mac},
    Field{"state", &EthBasicInfo::state},
    Field{"ip", &EthBasicInfo::ip},
    Field{"speed_mbps", &EthBasicInfo::speedMbps},
    Field{"sfp", &EthBasicInfo::sfp},
};

constexpr std::tuple kSystemFields{
    Field{"eths", &SysParametersDynamic::eths},
    Field{"uptime_s", &SysParametersDynamic::uptimeS},
    Field{"temperature_c", &SysParametersDynamic::temperatureC},
};

} // namespace

void SfpInfo::Serialize(Json::Value& out) const {
    json_fields::write(*this, kSfpFields, out);
}

void SfpInfo::Deserialize(Json::Value& in) {
    json_fields::read(*this, kSfpFields, in);
}

void EthBasicInfo::Serialize(Json::Value& out) const {
    json_fields::write(*this, kEthFields, out);
}

void EthBasicInfo::Deserialize(Json::Value& in) {
    json_fields::read(*this, kEthFields, in);
}

void SysParametersDynamic::Serialize(Json::Value& out) const {
    json_fields::write(*this, kSystemFields, out);
}

void SysParametersDynamic::Deserialize(Json::Value& in) {
    json_fields::read(*this, kSystemFields, in);
}
