#include "platform/records/SysParametersDynamic.hpp"

#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

namespace {
constexpr JsonKey kPresent{"present"};
constexpr JsonKey kVendor{"vendor"};
constexpr JsonKey kPartNumber{"part_number"};
constexpr JsonKey kSerial{"serial"};
constexpr JsonKey kTemperatureC{"temperature_c"};
constexpr JsonKey kTxPowerDbm{"tx_power_dbm"};
constexpr JsonKey kRxPowerDbm{"rx_power_dbm"};
constexpr JsonKey kName{"name"};
constexpr JsonKey kMac{"mac"};
constexpr JsonKey kState{"state"};
constexpr JsonKey kIp{"ip"};
constexpr JsonKey kSpeedMbps{"speed_mbps"};
constexpr JsonKey kSfp{"sfp"};
constexpr JsonKey kEths{"eths"};
constexpr JsonKey kUptimeS{"uptime_s"};
} // namespace

void SfpInfo::Serialize(Json::Value& out) const {
    out[kPresent] = present;
    out[kVendor] = vendor;
    out[kPartNumber] = partNumber;
    out[kSerial] = serial;
    out[kTemperatureC] = temperatureC;
    out[kTxPowerDbm] = txPowerDbm;
    out[kRxPowerDbm] = rxPowerDbm;
}

void SfpInfo::Deserialize(Json::Value& in) {
    present = json_member::boolean(in, kPresent);
    vendor = json_member::text(in, kVendor);
    partNumber = json_member::text(in, kPartNumber);
    serial = json_member::text(in, kSerial);
    temperatureC = json_member::real(in, kTemperatureC);
    txPowerDbm = json_member::real(in, kTxPowerDbm);
    rxPowerDbm = json_member::real(in, kRxPowerDbm);
}

void EthBasicInfo::Serialize(Json::Value& out) const {
    out[kName] = name;
    out[kMac] = mac;
    out[kState] = state;
    out[kIp] = ip;
    out[kSpeedMbps] = speedMbps;
    sfp.Serialize(out[kSfp]);
}

void EthBasicInfo::Deserialize(Json::Value& in) {
    name = json_member::text(in, kName);
    mac = json_member::text(in, kMac);
    state = json_member::truncated<std::uint8_t>(in, kState);
    ip = json_member::text(in, kIp);
    speedMbps = json_member::truncated<std::uint32_t>(in, kSpeedMbps);
    sfp.Deserialize(in[kSfp]);
}

void SysParametersDynamic::Serialize(Json::Value& out) const {
    json_list::write(out, kEths, eths);
    out[kUptimeS] = Json::UInt64{uptimeS};
    out[kTemperatureC] = temperatureC;
}

void SysParametersDynamic::Deserialize(Json::Value& in) {
    json_list::read(in, kEths, eths);
    uptimeS = json_member::unsigned64(in, kUptimeS);
    temperatureC = json_member::real(in, kTemperatureC);
}
