#include "platform/records/IpcMsg.hpp"

#include "platform/records/JsonMember.hpp"

#include <utility>

namespace {
constexpr JsonKey kCommandId{"command_id"};
constexpr JsonKey kCommandName{"command_name"};
constexpr JsonKey kPayload{"payload"};
} // namespace

void IpcMsg::Serialize(Json::Value& out) const {
    out[kCommandId] = commandId;
    out[kCommandName] = commandName;
    out[kPayload] = payload;
}

void IpcMsg::Deserialize(Json::Value& in) {
    const Json::Value* id = json_member::find(in, kCommandId);
    if (id == nullptr) {
        throw Json::LogicError("\"command_id\" is missing");
    }
    if (!id->isUInt()) {
        throw Json::LogicError("\"command_id\" is not an unsigned 32-bit integer");
    }
    commandId = id->asUInt();
    commandName = json_member::text(in, kCommandName);
    payload = std::move(in[kPayload]);
}
