#pragma once

#include "platform/records/IJsonSerializable.hpp"

#include <cstdint>
#include <list>
#include <string>

/// The PTP profile in force and its rates (IEEE 1588, SMPTE ST 2059-2).
class PtpProfile : public IJsonSerializable {
public:
    std::string name;
    /// PTP domain number.
    std::uint8_t domain = 0;
    /// Message intervals as IEEE 1588 gives them: the base-2 logarithm of seconds.
    std::int8_t announceInterval = 0;
    std::int8_t syncInterval = 0;
    std::int8_t delayReqInterval = 0;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// One PTP port of the clock.
class PtpBasePortInfo : public IJsonSerializable {
public:
    std::uint16_t portNumber = 0;
    /// IEEE 1588 port state, such as "SLAVE".
    std::string state;
    std::uint8_t portSetting1 = 0;
    std::uint8_t portSetting2 = 0;
    std::uint8_t portSetting3 = 0;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// The PTP state of the device, as the PTP management service reports it; also the status
/// document's "ptp". A missing key reads as the empty text, 0 or false.
class PtpCommonInfo : public IJsonSerializable {
public:
    /// Clock identities (IEEE 1588): 16 hexadecimal digits, "08-00-11-ff-fe-21-e1-b0".
    std::string clockId;
    std::string grandmasterId;
    /// The clock follows its grandmaster.
    bool locked = false;
    /// Offset from the grandmaster, nanoseconds.
    std::int64_t offsetNs = 0;
    /// Mean path delay, nanoseconds.
    std::int64_t meanPathDelayNs = 0;
    PtpProfile profile;
    std::uint8_t cfgSetting1 = 0;
    std::uint8_t cfgSetting2 = 0;
    std::uint8_t cfgSetting3 = 0;
    bool cfgFlag = false;
    std::list<PtpBasePortInfo> ports;

    /// Writes every key; "profile" nests, and "ports" is left out when the list is empty.
    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};
