#include "tools/kaikla-sim/NmosNode.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/ResultCode.hpp"
#include "tools/kaikla-sim/BoundSocket.hpp"

#include <utility>

namespace sim {

NmosNode::NmosNode(zmq::context_t& context, std::string deviceId)
    : device(std::move(deviceId)), socket(context, zmq::socket_type::rep) {
    bindSocket(socket, platform_protocol::kNmosNodeEndpoint, "NMOS node");
}

int NmosNode::getCommandDescription(unsigned int commandId, std::string& description) {
    if (commandId == platform_protocol::kNmosGetDeviceInfoId) {
        description = platform_protocol::kNmosGetDeviceInfoName;
    }
    return 0;
}

int NmosNode::ipcProcessMsg(IpcMsg& request, Json::Value& reply, bool& /*replyWanted*/) {
    if (request.commandId != platform_protocol::kNmosGetDeviceInfoId) {
        return result_code::kUnknownId;
    }
    Json::Value& info = reply["device"];
    info["id"] = device;
    info["label"] = "simulated device";
    return 0;
}

} // namespace sim
