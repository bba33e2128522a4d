#pragma once

#include "platform/session/ChannelId.hpp"
#include "platform/session/StreamData.hpp"

#include <list>

/// One audio stream of a session: a stream with "channels", left out when there are none.
class AudioStreamData : public StreamData {
public:
    /// In the order in which the stream carries them.
    std::list<ChannelId> channels;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};
