#include "platform/api/NmosClientIpc.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/records/JsonMember.hpp"

NmosClientIpc::NmosClientIpc()
    : ClientJsonApi(platform_protocol::kNmosNodeEndpoint, platform_protocol::kNmosAnswerTimeoutMs) {
}

int NmosClientIpc::getDeviceInfo(Json::Value& reply) {
    Json::Value answer;
    const int code = request(platform_protocol::kNmosGetDeviceInfoId,
                             platform_protocol::kNmosGetDeviceInfoName, answer);
    if (code < 0) {
        return code;
    }
    try {
        // What cannot be read later is refused here.
        if (const Json::Value* device = json_member::find(answer, "device"); device != nullptr) {
            (void)json_member::text(*device, "id");
        }
    } catch (const Json::LogicError&) {
        Logger::log(Logger::LOG_LEVEL_ERR, "NMOS node: its answer does not describe a device");
        return platform_protocol::kErrorMalformed;
    }
    reply = std::move(answer);
    return 0;
}
