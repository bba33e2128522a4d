#include "handler/WebNotifierHandler.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/api/Chk.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/ResultCode.hpp"
#include "platform/records/JsonMember.hpp"

int WebNotifierHandler::init(zmq::context_t& zmqContext, PollFds& pollFds) {
    try {
        commandSocket = new zmq::socket_t(zmqContext, ZMQ_REP);
        commandSocket->bind(platform_protocol::kCommandBindEndpoint);
    } catch (const zmq::error_t& error) {
        Logger::log(Logger::LOG_LEVEL_ERR,
                    "WebnotifierHandler: Error binding on socket %s. Error [%d]::%s",
                    platform_protocol::kCommandBindEndpoint, error.num(), error.what());
        return result_code::kCommandSocket;
    }
    if (const int code = pollFds.addSocket(commandSocket->handle(), ZMQ_POLLIN); code < 0) {
        return CHK(code);
    }
    context = &zmqContext;

    if (const int code = AvmgrSubscriber::init(zmqContext, pollFds); code < 0) {
        return CHK(code);
    }
    AvmgrSubscriber::subscribe(AvmgrPublisher::avmgr_new_session);
    AvmgrSubscriber::subscribe(AvmgrPublisher::avmgr_removed_session);
    AvmgrSubscriber::subscribe(AvmgrPublisher::avmgr_session_status);

    // The system manager is a convenience: the service does its work without it.
    SysmgrSubscriber::init(zmqContext);
    SysmgrSubscriber::subscribe(SysmgrPublisher::sysmgr_dynamic_information_update);
    SysmgrSubscriber::getPollItems(pollFds);

    if (const int code = ZatPmcSubscriber::init(zmqContext, pollFds); code < 0) {
        return CHK(code);
    }
    ZatPmcSubscriber::subscribeAll();

    if (const int code = nmosClient.init(zmqContext); code < 0) {
        return CHK(code);
    }
    return 0;
}

bool WebNotifierHandler::processIncomingEvents(const zmq_pollitem_t& item) {
    if (commandSocket != nullptr && item.socket == commandSocket->handle()) {
        ipcPreProcessMsg(commandSocket);
        return true;
    }
    return AvmgrSubscriber::processEvent(item) || SysmgrSubscriber::processEvent(item) ||
           ZatPmcSubscriber::processEvent(item);
}

int WebNotifierHandler::checkIfDeviceIdIsDefined() {
    if (!deviceStatus.deviceId.empty()) {
        return 0;
    }
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: device id is not defined. asking for it.", __func__);
    Json::Value reply;
    if (const int code = nmosClient.getDeviceInfo(reply); code < 0) {
        return CHK(code);
    }
    if (const Json::Value* device = json_member::find(reply, "device"); device != nullptr) {
        deviceStatus.deviceId = json_member::text(*device, "id");
    }
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: %s", __func__, deviceStatus.deviceId.c_str());
    return 0;
}
