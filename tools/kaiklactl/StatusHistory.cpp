#include "tools/kaiklactl/StatusHistory.hpp"

#include "handler/WebNotifierPublishCommand.hpp"
#include "tools/kaiklactl/StatusChanges.hpp"
#include "tools/kaiklactl/Wording.hpp"

#include <algorithm>
#include <utility>

namespace kaiklactl {
namespace {

std::string joined(const Changes& changes) {
    if (changes.empty()) {
        return "nothing new";
    }
    std::string text;
    for (const std::string& change : changes) {
        text += (text.empty() ? "" : "; ") + change;
    }
    return text;
}

std::string alarmsInWords(std::size_t number) {
    return number == 0 ? "no alarm" : counted(number, "alarm");
}

std::string summary(const WebNotifierDeviceStatus& status) {
    std::string text = "whole status: " + counted(status.sessions.size(), "session");
    text += ", " + alarmsInWords(alarmCount(status));
    text += ", PTP " + ptpState(status.ptp);
    text += ", " + counted(status.eths.size(), "port");
    for (const EthBasicInfo& port : status.eths) {
        text += isUp(port) ? "" : ", port " + port.name + " " + portState(port);
    }
    text += ", device " + (status.deviceId.empty() ? "unknown" : status.deviceId);
    return text;
}

template <typename Record>
Record read(Json::Value& payload) {
    if (!payload.isObject()) {
        throw Json::LogicError("the payload is not an object");
    }
    Record record;
    record.Deserialize(payload);
    return record;
}

} // namespace

std::string StatusHistory::take(IpcMsg& message) {
    switch (message.commandId) {
    case WebNotifierPublishCommand::status_all:
        return takeWhole(read<WebNotifierDeviceStatus>(message.payload));
    case WebNotifierPublishCommand::status_session:
        return takeSession(read<SessionStatusData>(message.payload));
    default:
        return "a kind of message that this program does not know (" +
               std::to_string(message.commandId) + ")";
    }
}

std::string StatusHistory::takeWhole(WebNotifierDeviceStatus status) {
    const WebNotifierDeviceStatus before = std::exchange(known, std::move(status));
    if (!std::exchange(complete, true)) {
        return summary(known);
    }
    Changes changes;
    if (before.deviceId != known.deviceId) {
        changes.push_back("device " + known.deviceId);
    }
    addSessionListChanges(before.sessions, known.sessions, changes);
    addPtpChanges(before.ptp, known.ptp, changes);
    addPortChanges(before.eths, known.eths, changes);
    return joined(changes);
}

std::string StatusHistory::takeSession(SessionStatusData session) {
    Changes changes;
    auto& sessions = known.sessions;
    const auto before =
        std::find_if(sessions.begin(), sessions.end(),
                     [&session](const SessionStatusData& other) { return other.id == session.id; });
    if (before != sessions.end()) {
        addSessionChanges(*before, session, changes);
        sessions.erase(before);
    } else if (complete) {
        addNewSession(session, changes);
    } else {
        changes.push_back("session " + std::to_string(session.id) + ": " +
                          counted(session.streams.size(), "stream") + ", " +
                          alarmsInWords(alarmCount(session)));
    }
    if (changes.empty()) {
        changes.push_back("session " + std::to_string(session.id) + " reported again");
    }
    known.deviceId = session.deviceId;
    sessions.push_back(std::move(session));
    return joined(changes);
}

} // namespace kaiklactl
