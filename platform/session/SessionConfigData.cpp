#include "platform/session/SessionConfigData.hpp"

#include "platform/records/JsonFields.hpp"

using json_fields::Beside;
using json_fields::Field;

namespace {

constexpr std::tuple kStreamFields{
    Field{"id", &StreamData::id},
    Beside{&StreamData::streamClass},
    Beside{&StreamData::state},
    Beside{&StreamData::type},
    Beside{&StreamData::redundantType},
    Beside{&StreamData::codec},
    // Beside the others its "id" would be the stream's.
    Field{"vlan", &StreamData::vlan},
    Beside{&StreamData::udpPort},
    Beside{&StreamData::rtp},
    Beside{&StreamData::ipAddrCfg},
};

constexpr std::tuple kAudioFields{Field{"channels", &AudioStreamData::channels}};

constexpr std::tuple kVideoFields{
    Beside{&VideoStreamData::timing},
    Beside{&VideoStreamData::tributary},
};

constexpr std::tuple kSessionFields{
    Field{"id", &SessionConfigData::id},
    Field{"nmos_id", &SessionConfigData::nmosId},
    Field{"audio", &SessionConfigData::audio},
    Field{"video", &SessionConfigData::video},
};

} // namespace

void StreamData::Serialize(Json::Value& out) const {
    json_fields::write(*this, kStreamFields, out);
}

void StreamData::Deserialize(Json::Value& in) {
    json_fields::read(*this, kStreamFields, in);
}

void AudioStreamData::Serialize(Json::Value& out) const {
    StreamData::Serialize(out);
    json_fields::write(*this, kAudioFields, out);
}

void AudioStreamData::Deserialize(Json::Value& in) {
    StreamData::Deserialize(in);
    json_fields::read(*this, kAudioFields, in);
}

void VideoStreamData::Serialize(Json::Value& out) const {
    StreamData::Serialize(out);
    json_fields::write(*this, kVideoFields, out);
}

void VideoStreamData::Deserialize(Json::Value& in) {
    StreamData::Deserialize(in);
    json_fields::read(*this, kVideoFields, in);
}

void SessionConfigData::Serialize(Json::Value& out) const {
    json_fields::write(*this, kSessionFields, out);
}

void SessionConfigData::Deserialize(Json::Value& in) {
    json_fields::read(*this, kSessionFields, in);
}
