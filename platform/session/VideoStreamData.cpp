#include "platform/session/VideoStreamData.hpp"

void VideoStreamData::Serialize(Json::Value& out) const {
    StreamData::Serialize(out);
    timing.Serialize(out);
    tributary.Serialize(out);
}

void VideoStreamData::Deserialize(Json::Value& in) {
    StreamData::Deserialize(in);
    timing.Deserialize(in);
    tributary.Deserialize(in);
}
