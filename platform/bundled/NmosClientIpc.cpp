#include "platform/api/NmosClientIpc.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/records/JsonMember.hpp"

namespace {

bool isUsable(const Json::Value& reply) {
    if (!reply.isObject()) {
        return false;
    }
    const Json::Value* device = json_member::find(reply, "device");
    if (device == nullptr || device->isNull()) {
        return true;
    }
    if (!device->isObject()) {
        return false;
    }
    const Json::Value* id = json_member::find(*device, "id");
    return id == nullptr || id->isConvertibleTo(Json::stringValue);
}

} // namespace

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
    if (!isUsable(answer)) {
        Logger::log(Logger::LOG_LEVEL_ERR, "NMOS node: its answer does not describe a device");
        return platform_protocol::kErrorMalformed;
    }
    reply = std::move(answer);
    return 0;
}
