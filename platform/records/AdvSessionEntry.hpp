#pragma once

#include "platform/records/IJsonSerializable.hpp"

#include <cstdint>
#include <string>

/// A session that some device on the network advertises (SAP, RFC 2974, or another announcement).
class AdvSessionEntry : public IJsonSerializable {
public:
    std::uint64_t id = 0;
    std::string name;
    /// The session description (SDP, RFC 8866).
    std::string sdp;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};
