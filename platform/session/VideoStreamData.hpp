#pragma once

#include "model/StreamConfiguration.hpp"
#include "platform/session/StreamData.hpp"

/// One video or ancillary stream of a session: a stream with the keys of its timing and the nested
/// tributary.
class VideoStreamData : public StreamData {
public:
    VideoTimingParameters timing;
    TributaryType tributary;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};
