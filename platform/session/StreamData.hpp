#pragma once

#include "model/StreamConfiguration.hpp"
#include "platform/records/IJsonSerializable.hpp"

#include <cstdint>

/// What the streams of every medium have in common: {"id": u64}, the keys of each attribute record
/// beside it, and the VLAN tag nested under "vlan".
class StreamData : public IJsonSerializable {
public:
    /// Given by the session manager.
    std::uint64_t id = 0;
    StreamClass streamClass;
    State state;
    StreamType type;
    RedundantType redundantType;
    Codec codec;
    Vlan vlan;
    UdpPort udpPort;
    Rtp rtp;
    IpAddrCfg ipAddrCfg;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};
