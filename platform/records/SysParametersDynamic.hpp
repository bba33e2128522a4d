#pragma once

#include "platform/records/IJsonSerializable.hpp"

#include <cstdint>
#include <list>
#include <string>

/// What a pluggable transceiver tells about itself (SFF-8472).
class SfpInfo : public IJsonSerializable {
public:
    bool present = false;
    std::string vendor;
    std::string partNumber;
    std::string serial;
    /// Degrees Celsius.
    double temperatureC = 0;
    /// Optical power, dBm.
    double txPowerDbm = 0;
    double rxPowerDbm = 0;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// One Ethernet port; also an element of the status document's "eths".
class EthBasicInfo : public IJsonSerializable {
public:
    /// Any other number passes through as it came.
    enum state_t : std::uint8_t { down = 0, up = 1 };

    /// The port's identity, such as "eth0".
    std::string name;
    std::string mac;
    std::uint8_t state = down;
    std::string ip;
    std::uint32_t speedMbps = 0;
    SfpInfo sfp;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// The dynamic system information, as the system manager reports it.
class SysParametersDynamic : public IJsonSerializable {
public:
    std::list<EthBasicInfo> eths;
    /// Seconds since the device started.
    std::uint64_t uptimeS = 0;
    /// Degrees Celsius.
    double temperatureC = 0;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};
