#include "platform/records/AdvSessionEntry.hpp"

#include "platform/records/JsonMember.hpp"

void AdvSessionEntry::Serialize(Json::Value& out) const {
    out["id"] = Json::UInt64{id};
    out["name"] = name;
    out["sdp"] = sdp;
}

void AdvSessionEntry::Deserialize(Json::Value& in) {
    id = json_member::unsigned64(in, "id");
    name = json_member::text(in, "name");
    sdp = json_member::text(in, "sdp");
}
