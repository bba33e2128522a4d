#pragma once

#include "platform/records/IJsonSerializable.hpp"

#include <cstdint>
#include <list>

/// The configuration of one PTP port.
class ZatPmcPtpPortCfg : public IJsonSerializable {
public:
    /// Signed on purpose: a port configured as 128 or more becomes negative and so matches no port
    /// of the PTP status, whose port numbers are unsigned.
    std::int8_t portNumber = 0;
    std::uint8_t portSetting1 = 0;
    std::uint8_t portSetting2 = 0;
    std::uint8_t portSetting3 = 0;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// The PTP configuration, as the PTP management service reports a change of it.
class ZatPmcPtpCfg : public IJsonSerializable {
public:
    std::uint8_t cfgSetting1 = 0;
    std::uint8_t cfgSetting2 = 0;
    std::uint8_t cfgSetting3 = 0;
    /// Zero or non-zero.
    std::int32_t cfgFlag = 0;
    std::list<ZatPmcPtpPortCfg> ports;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};
