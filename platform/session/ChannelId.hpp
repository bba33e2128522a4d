#pragma once

#include "model/StreamConfiguration.hpp"
#include "platform/records/IJsonSerializable.hpp"

/// One channel of an audio stream, as an object with the keys of its attribute.
class ChannelId : public IJsonSerializable {
public:
    DaifType daif;

    void Serialize(Json::Value& out) const override { daif.Serialize(out); }
    void Deserialize(Json::Value& in) override { daif.Deserialize(in); }
};
