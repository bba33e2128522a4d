#include "tools/kaikla-sim/NmosNode.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/records/IpcMsg.hpp"

#include <zmq_addon.hpp>

#include <iterator>
#include <utility>
#include <vector>

namespace sim {

namespace {

std::string encodeReply(const IpcMsg& message, int result, const std::string& error) {
    Json::Value json;
    message.Serialize(json);
    json["result"] = result;
    if (result < 0) {
        json["error"] = error;
    }
    return toCompactJson(json);
}

std::string refusal(unsigned commandId, const std::string& error) {
    IpcMsg message;
    message.commandId = commandId;
    message.payload = Json::Value(Json::objectValue);
    return encodeReply(message, platform_protocol::kErrorMalformed, error);
}

} // namespace

NmosNode::NmosNode(zmq::socket_t rep, std::string deviceId)
    : repSocket(std::move(rep)), device(std::move(deviceId)) {}

void NmosNode::answerRequest() {
    std::vector<zmq::message_t> frames;
    if (!zmq::recv_multipart(repSocket, std::back_inserter(frames), zmq::recv_flags::dontwait)) {
        return;
    }
    const std::string answer = frames.size() == 1
                                   ? answerTo(frames.front().to_string_view())
                                   : refusal(0, "The request holds several frames instead of one.");
    // REP never waits: the answer to a client that is gone is dropped.
    (void)repSocket.send(zmq::buffer(answer), zmq::send_flags::dontwait);
}

std::string NmosNode::answerTo(std::string_view request) {
    Json::Value json;
    if (const std::string reason = decoder.decodeObject(request, json); !reason.empty()) {
        return refusal(0, "The request is " + reason + ".");
    }
    IpcMsg message;
    try {
        message.Deserialize(json);
    } catch (const Json::Exception& error) {
        return refusal(0, std::string("The request cannot be decoded: ") + error.what() + ".");
    }
    if (message.commandId != platform_protocol::kNmosGetDeviceInfoId) {
        return refusal(message.commandId, std::string("The simulated NMOS node knows \"") +
                                              platform_protocol::kNmosGetDeviceInfoName +
                                              "\" only.");
    }
    message.commandName = platform_protocol::kNmosGetDeviceInfoName;
    message.payload = Json::Value();
    message.payload["device"]["id"] = device;
    message.payload["device"]["label"] = "simulated device";
    constexpr int kSuccess = 0;
    return encodeReply(message, kSuccess, "");
}

} // namespace sim
