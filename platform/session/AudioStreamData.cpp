#include "platform/session/AudioStreamData.hpp"

#include "platform/records/JsonKey.hpp"
#include "platform/records/JsonList.hpp"

namespace {
constexpr JsonKey kChannels{"channels"};
} // namespace

void AudioStreamData::Serialize(Json::Value& out) const {
    StreamData::Serialize(out);
    json_list::write(out, kChannels, channels);
}

void AudioStreamData::Deserialize(Json::Value& in) {
    StreamData::Deserialize(in);
    json_list::read(in, kChannels, channels);
}
