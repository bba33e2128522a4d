#include "platform/records/SysParametersDynamic.hpp"

#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

void SfpInfo::Serialize(Json::Value& out) const {
    out["present"] = present;
    out["vendor"] = vendor;
    out["part_number"] = partNumber;
    out["serial"] = serial;
    out["temperature_c"] = temperatureC;
    out["tx_power_dbm"] = txPowerDbm;
    out["rx_power_dbm"] = rxPowerDbm;
}

void SfpInfo::Deserialize(Json::Value& in) {
    present = json_member::boolean(in, "present");
    vendor = json_member::text(in, "vendor");
    partNumber = json_member::text(in, "part_number");
    serial = json_member::text(in, "serial");
    temperatureC = json_member::real(in, "temperature_c");
    txPowerDbm = json_member::real(in, "tx_power_dbm");
    rxPowerDbm = json_member::real(in, "rx_power_dbm");
}

void EthBasicInfo::Serialize(Json::Value& out) const {
    out["name"] = name;
    out["mac"] = mac;
    out["state"] = state;
    out["ip"] = ip;
    out["speed_mbps"] = speedMbps;
    sfp.Serialize(out["sfp"]);
}

void EthBasicInfo::Deserialize(Json::Value& in) {
    name = json_member::text(in, "name");
    mac = json_member::text(in, "mac");
    state = json_member::truncated<std::uint8_t>(in, "state");
    ip = json_member::text(in, "ip");
    speedMbps = json_member::truncated<std::uint32_t>(in, "speed_mbps");
    sfp.Deserialize(in["sfp"]);
}

void SysParametersDynamic::Serialize(Json::Value& out) const {
    json_list::write(out, "eths", eths);
    out["uptime_s"] = Json::UInt64{uptimeS};
    out["temperature_c"] = temperatureC;
}

void SysParametersDynamic::Deserialize(Json::Value& in) {
    json_list::read(in, "eths", eths);
    uptimeS = json_member::unsigned64(in, "uptime_s");
    temperatureC = json_member::real(in, "temperature_c");
}
