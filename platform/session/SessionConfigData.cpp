#include "platform/session/SessionConfigData.hpp"

#include "platform/records/JsonKey.hpp"
#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

namespace {
constexpr JsonKey kId{"id"};
constexpr JsonKey kNmosId{"nmos_id"};
constexpr JsonKey kAudio{"audio"};
constexpr JsonKey kVideo{"video"};
} // namespace

void SessionConfigData::Serialize(Json::Value& out) const {
    out[kId] = Json::UInt64{id};
    out[kNmosId] = nmosId;
    json_list::write(out, kAudio, audio);
    json_list::write(out, kVideo, video);
}

void SessionConfigData::Deserialize(Json::Value& in) {
    id = json_member::unsigned64(in, kId);
    nmosId = json_member::text(in, kNmosId);
    json_list::read(in, kAudio, audio);
    json_list::read(in, kVideo, video);
}
