#include "handler/WebNotifierHandler.hpp"
#include "handler/WebNotifierPublishCommand.hpp"
#include "platform/api/Chk.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/ResultCode.hpp"

#include <algorithm>
#include <list>

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

} // namespace

int WebNotifierHandler::avmgrNotifyNewSessionEvent(SessionConfigData& config) {
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: session %lld", __func__,
                static_cast<long long>(config.id));
    SessionStatusData status;
    if (const int code = checkIfDeviceIdIsDefined(); code < 0) {
        return CHK(code);
    }
    status.deviceId = deviceStatus.deviceId;
    status.nmosId = config.nmosId;
    status.id = config.id;
    appendStreamIds(status.streams, config.audio);
    appendStreamIds(status.streams, config.video);
    if (const int code = avmgrNotifyUpdateSessionStatusEvent(status); code < 0) {
        return CHK(code);
    }
    return 0;
}

int WebNotifierHandler::avmgrNotifyUpdateSessionStatusEvent(SessionStatusData& status) {
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: session %lld - NMOS %s", __func__,
                static_cast<long long>(status.id), status.nmosId.c_str());
    auto& sessions = deviceStatus.sessions;
    // Consumers find the session that changed most recently at the end of the list.
    if (const auto known = findSession(sessions, status.id); known != sessions.end()) {
        // The same as a removal and an addition, but the record's memory serves again.
        sessions.splice(sessions.end(), sessions, known);
        *known = status;
    } else {
        sessions.push_back(status);
    }
    // The session manager's word counts, an empty one included: the NMOS node is then asked again.
    deviceStatus.deviceId = status.deviceId;

    IpcMsg message;
    if (const int code = WebNotifierPublishCommand::getCommandStr(
            WebNotifierPublishCommand::status_session, message);
        code < 0) {
        return CHK(code);
    }
    if (const int code = checkIfDeviceIdIsDefined(); code < 0) {
        return CHK(code);
    }
    status.Serialize(message.payload);
    publisher.publishMessage(message, "");
    return 0;
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
