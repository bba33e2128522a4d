#include "handler/WebNotifierHandler.hpp"

#include "handler/WebNotifierCommand.hpp"
#include "handler/WebNotifierPublishCommand.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/api/Chk.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/ResultCode.hpp"
#include "platform/records/JsonMember.hpp"

#include <algorithm>
#include <cstdint>
#include <list>
#include <utility>

namespace {

/// The document holds at most one record a session.
std::list<SessionStatusData>::iterator findSession(std::list<SessionStatusData>& sessions,
                                                   std::uint64_t id) {
    return std::find_if(sessions.begin(), sessions.end(),
                        [id](const SessionStatusData& session) { return session.id == id; });
}

template <typename Streams>
void appendStreamIds(std::list<StreamStatusData>& status, const Streams& configured) {
    for (const auto& stream : configured) {
        status.emplace_back().id = stream.id;
    }
}

/// Whether two lists of Ethernet ports differ in a way that consumers are told: in number, names or
/// states. Everything else about a port moves all the time (SFP temperatures) and does not count.
bool portsChanged(const std::list<EthBasicInfo>& known, const std::list<EthBasicInfo>& reported) {
    if (known.size() != reported.size()) {
        return true;
    }
    return std::any_of(known.begin(), known.end(), [&reported](const EthBasicInfo& port) {
        const auto match =
            std::find_if(reported.begin(), reported.end(), [&port](const EthBasicInfo& candidate) {
                return candidate.name == port.name;
            });
        return match == reported.end() || match->state != port.state;
    });
}

} // namespace

// Set-up and dispatch

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
    if (const int code = CHK(pollFds.addSocket(commandSocket->handle(), ZMQ_POLLIN)); code < 0) {
        return code;
    }
    context = &zmqContext;

    if (const int code = CHK(AvmgrSubscriber::init(zmqContext, pollFds)); code < 0) {
        return code;
    }
    AvmgrSubscriber::subscribe(AvmgrPublisher::avmgr_new_session);
    AvmgrSubscriber::subscribe(AvmgrPublisher::avmgr_removed_session);
    AvmgrSubscriber::subscribe(AvmgrPublisher::avmgr_session_status);

    // The system manager is a convenience: the service does its work without it.
    SysmgrSubscriber::init(zmqContext);
    SysmgrSubscriber::subscribe(SysmgrPublisher::sysmgr_dynamic_information_update);
    SysmgrSubscriber::getPollItems(pollFds);

    if (const int code = CHK(ZatPmcSubscriber::init(zmqContext, pollFds)); code < 0) {
        return code;
    }
    ZatPmcSubscriber::subscribeAll();

    return CHK(nmosClient.init(zmqContext));
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
    if (const int code = CHK(nmosClient.getDeviceInfo(reply)); code < 0) {
        return code;
    }
    if (const Json::Value* device = json_member::find(reply, "device"); device != nullptr) {
        deviceStatus.deviceId = json_member::text(*device, "id");
    }
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: %s", __func__, deviceStatus.deviceId.c_str());
    return 0;
}

// Commands

int WebNotifierHandler::getCommandDescription(unsigned int commandId, std::string& description) {
    // A known name replaces what the text held, an unknown one is appended to it: callers that put
    // a prefix there rely on seeing it in front of "not recognized".
    if (WebNotifierCommand::getCommandNameStr(commandId, description) < 0) {
        description += "not recognized";
    }
    return 0;
}

int WebNotifierHandler::ipcProcessMsg(IpcMsg& request, Json::Value& reply, bool& replyWanted) {
    replyWanted = true;
    switch (request.commandId) {
    case WebNotifierCommand::get_device_status:
        deviceStatus.Serialize(reply["status"]);
        return 0;
    case WebNotifierCommand::add_remote_info_consumer: {
        std::string address = json_member::text(request.payload, "address");
        if (const int code = CHK(publisher.addRemote(*context, address)); code < 0) {
            return code;
        }
        // The consumer has the whole state at once, and again if it registers a second time.
        publishAllDeviceStatus(std::move(address));
        return 0;
    }
    case WebNotifierCommand::remove_remote_info_consumer: {
        std::string address = json_member::text(request.payload, "address");
        return CHK(publisher.removeRemote(address));
    }
    case WebNotifierCommand::get_server_list: {
        std::list<std::string> addresses;
        if (const int code = CHK(publisher.getRemoteServersList(addresses)); code < 0) {
            return code;
        }
        for (const std::string& address : addresses) {
            reply["remote"].append(address);
        }
        return 0;
    }
    default:
        Logger::log(Logger::LOG_LEVEL_ERR, "WebnotifierHandler command %d is not recognized.",
                    static_cast<int>(request.commandId));
        return result_code::kUnknownId;
    }
}

// Session events

int WebNotifierHandler::avmgrNotifyNewSessionEvent(SessionConfigData& config) {
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: session %lld", __func__,
                static_cast<long long>(config.id));
    if (const int code = CHK(checkIfDeviceIdIsDefined()); code < 0) {
        return code;
    }
    SessionStatusData status;
    status.deviceId = deviceStatus.deviceId;
    status.nmosId = config.nmosId;
    status.id = config.id;
    appendStreamIds(status.streams, config.audio);
    appendStreamIds(status.streams, config.video);
    return CHK(avmgrNotifyUpdateSessionStatusEvent(status));
}

int WebNotifierHandler::avmgrNotifyRemovedSessionEvent(unsigned long long& sessionId) {
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: session %lld", __func__,
                static_cast<long long>(sessionId));
    const auto known = findSession(deviceStatus.sessions, sessionId);
    if (known == deviceStatus.sessions.end()) {
        return result_code::kUnknownSession;
    }
    // Silent on purpose: consumers learn of a removal from the next "status-all".
    deviceStatus.sessions.erase(known);
    return 0;
}

int WebNotifierHandler::avmgrNotifyUpdateSessionStatusEvent(SessionStatusData& status) {
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: session %lld - NMOS %s", __func__,
                static_cast<long long>(status.id), status.nmosId.c_str());
    auto& sessions = deviceStatus.sessions;
    if (const auto known = findSession(sessions, status.id); known != sessions.end()) {
        sessions.erase(known);
    }
    // The session manager's word counts, an empty one included: the NMOS node is then asked again.
    deviceStatus.deviceId = status.deviceId;
    // Consumers find the session that changed most recently at the end of the list.
    sessions.push_back(status);

    IpcMsg message;
    if (const int code = CHK(WebNotifierPublishCommand::getCommandStr(
            WebNotifierPublishCommand::status_session, message));
        code < 0) {
        return code;
    }
    if (const int code = CHK(checkIfDeviceIdIsDefined()); code < 0) {
        return code;
    }
    status.Serialize(message.payload);
    publisher.publishMessage(message, "");
    return 0;
}

// PTP and system events

int WebNotifierHandler::zatPmcPtpStatusChangeEvent(PtpCommonInfo& status) {
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: PTP changed", __func__);
    deviceStatus.ptp = status;
    return CHK(publishAllDeviceStatus(""));
}

int WebNotifierHandler::zatPmcPtpConfigChangeEvent(ZatPmcPtpCfg& config) {
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: PTP changed", __func__);
    PtpCommonInfo& ptp = deviceStatus.ptp;
    ptp.cfgSetting1 = config.cfgSetting1;
    ptp.cfgSetting2 = config.cfgSetting2;
    ptp.cfgSetting3 = config.cfgSetting3;
    ptp.cfgFlag = config.cfgFlag != 0;
    for (const ZatPmcPtpPortCfg& configured : config.ports) {
        for (PtpBasePortInfo& port : ptp.ports) {
            // Signed against unsigned: a negative number, configured as 128 or more, matches none.
            if (std::cmp_equal(configured.portNumber, port.portNumber)) {
                port.portSetting1 = configured.portSetting1;
                port.portSetting2 = configured.portSetting2;
                port.portSetting3 = configured.portSetting3;
            }
        }
    }
    return CHK(publishAllDeviceStatus(""));
}

int WebNotifierHandler::notifyDynamicInfoUpdate(SysParametersDynamic& information) {
    const bool changed = portsChanged(deviceStatus.eths, information.eths);
    Logger::log(Logger::LOG_LEVEL_DBG, "%s:: information %s change", __func__,
                changed ? "did" : "didn't");
    if (!changed) {
        return 0;
    }
    deviceStatus.eths = information.eths;
    return CHK(publishAllDeviceStatus(""));
}

// Full status

int WebNotifierHandler::publishAllDeviceStatus(std::string remote) {
    if (const int code = CHK(checkIfDeviceIdIsDefined()); code < 0) {
        return code;
    }
    IpcMsg message;
    if (const int code = CHK(WebNotifierPublishCommand::getCommandStr(
            WebNotifierPublishCommand::status_all, message));
        code < 0) {
        return code;
    }
    deviceStatus.Serialize(message.payload);
    publisher.publishMessage(message, std::move(remote));
    return 0;
}
