#include "platform/records/AdvSessionEntry.hpp"

#include "platform/records/JsonMember.hpp"

namespace {
constexpr JsonKey kId{"id"};
constexpr JsonKey kName{"name"};
constexpr JsonKey kSdp{"sdp"};
} // namespace

void AdvSessionEntry::Serialize(Json::Value& out) const {
    out[kId] = Json::UInt64{id};
    out[kName] = name;
    out[kSdp] = sdp;
}

void AdvSessionEntry::Deserialize(Json::Value& in) {
    id = json_member::unsigned64(in, kId);
    name = json_member::text(in, kName);
    sdp = json_member::text(in, kSdp);
}
