#include "platform/session/SessionConfigData.hpp"

#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

void StreamData::Serialize(Json::Value& out) const {
    out["id"] = Json::UInt64{id};
}

void StreamData::Deserialize(Json::Value& in) {
    id = json_member::unsigned64(in, "id");
}

void SessionConfigData::Serialize(Json::Value& out) const {
    out["id"] = Json::UInt64{id};
    out["nmos_id"] = nmosId;
    json_list::write(out, "audio", audio);
    json_list::write(out, "video", video);
}

void SessionConfigData::Deserialize(Json::Value& in) {
    id = json_member::unsigned64(in, "id");
    nmosId = json_member::text(in, "nmos_id");
    json_list::read(in, "audio", audio);
    json_list::read(in, "video", video);
}
