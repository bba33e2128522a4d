#include "platform/session/StreamData.hpp"

#include "platform/records/JsonKey.hpp"
#include "platform/records/JsonMember.hpp"

namespace {
constexpr JsonKey kId{"id"};
constexpr JsonKey kVlan{"vlan"};
} // namespace

void StreamData::Serialize(Json::Value& out) const {
    out[kId] = Json::UInt64{id};
    streamClass.Serialize(out);
    state.Serialize(out);
    type.Serialize(out);
    redundantType.Serialize(out);
    codec.Serialize(out);
    vlan.Serialize(out[kVlan]);
    udpPort.Serialize(out);
    rtp.Serialize(out);
    ipAddrCfg.Serialize(out);
}

void StreamData::Deserialize(Json::Value& in) {
    id = json_member::unsigned64(in, kId);
    streamClass.Deserialize(in);
    state.Deserialize(in);
    type.Deserialize(in);
    redundantType.Deserialize(in);
    codec.Deserialize(in);
    vlan.Deserialize(in[kVlan]);
    udpPort.Deserialize(in);
    rtp.Deserialize(in);
    ipAddrCfg.Deserialize(in);
}
