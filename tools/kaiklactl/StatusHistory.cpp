#include "tools/kaiklactl/StatusHistory.hpp"

#include "handler/WebNotifierPublishCommand.hpp"
#include "tools/kaiklactl/StatusReport.hpp"

#include <algorithm>
#include <list>
#include <map>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace kaiklactl {
namespace {

/// What changed between two states of the same thing, one short text a change.
using Changes = std::vector<std::string>;

// Lists of records are matched by what identifies their elements on the device.

const std::string& identity(const EthBasicInfo& port) {
    return port.name;
}
std::uint16_t identity(const PtpBasePortInfo& port) {
    return port.portNumber;
}
std::uint64_t identity(const StreamStatusData& stream) {
    return stream.id;
}
std::uint64_t identity(const SessionStatusData& session) {
    return session.id;
}
/// An alarm has no id: one whose text changes is another one.
auto identity(const StreamAlarmData& alarm) {
    return std::tie(alarm.severity, alarm.description, alarm.type);
}

/// The first record of each identity. Comparing two long lists must not take time by the product of
/// their lengths.
template <typename Record>
auto indexed(const std::list<Record>& records) {
    std::map<std::decay_t<decltype(identity(records.front()))>, const Record*> index;
    for (const Record& record : records) {
        index.emplace(identity(record), &record);
    }
    return index;
}

/// Calls `came(record)`, `stayed(before, after)` and `went(record)` for the elements of two lists.
template <typename Record, typename Came, typename Stayed, typename Went>
void compare(const std::list<Record>& before, const std::list<Record>& after, const Came& came,
             const Stayed& stayed, const Went& went) {
    const auto known = indexed(before);
    for (const Record& record : after) {
        if (const auto found = known.find(identity(record)); found == known.end()) {
            came(record);
        } else {
            stayed(*found->second, record);
        }
    }
    const auto present = indexed(after);
    for (const Record& record : before) {
        if (!present.contains(identity(record))) {
            went(record);
        }
    }
}

auto settings(const PtpBasePortInfo& port) {
    return std::tie(port.portSetting1, port.portSetting2, port.portSetting3);
}

auto settings(const PtpCommonInfo& ptp) {
    return std::tie(ptp.cfgSetting1, ptp.cfgSetting2, ptp.cfgSetting3, ptp.cfgFlag);
}

auto asTuple(const PtpProfile& profile) {
    return std::tie(profile.name, profile.domain, profile.announceInterval, profile.syncInterval,
                    profile.delayReqInterval);
}

void addPtpPortChanges(const PtpCommonInfo& before, const PtpCommonInfo& after, Changes& changes) {
    bool configured = settings(before) != settings(after);
    const auto named = [](const PtpBasePortInfo& port) {
        return "PTP port " + std::to_string(port.portNumber);
    };
    compare(
        before.ports, after.ports,
        [&](const PtpBasePortInfo& port) {
            changes.push_back(named(port) + " new, " + port.state);
        },
        [&](const PtpBasePortInfo& known, const PtpBasePortInfo& port) {
            if (known.state != port.state) {
                changes.push_back(named(port) + " " + port.state);
            }
            configured = configured || settings(known) != settings(port);
        },
        [&](const PtpBasePortInfo& port) { changes.push_back(named(port) + " gone"); });
    if (configured) {
        changes.emplace_back("PTP configuration changed");
    }
}

void addAlarmChanges(const std::string& holder, const std::list<StreamAlarmData>& before,
                     const std::list<StreamAlarmData>& after, Changes& changes) {
    compare(
        before, after,
        [&](const StreamAlarmData& alarm) {
            changes.push_back(holder + " alarm raised: " + alarmText(alarm));
        },
        [](const StreamAlarmData&, const StreamAlarmData&) {},
        [&](const StreamAlarmData& alarm) {
            changes.push_back(holder + " alarm cleared: " + alarmText(alarm));
        });
}

std::string named(const SessionStatusData& session) {
    return "session " + std::to_string(session.id);
}

std::string named(const SessionStatusData& session, const StreamStatusData& stream) {
    return named(session) + " stream " + std::to_string(stream.id);
}

void addPtpChanges(const PtpCommonInfo& before, const PtpCommonInfo& after, Changes& changes) {
    if (!isReported(before) && isReported(after)) {
        changes.push_back("PTP reported: " + ptpState(after));
        return;
    }
    const std::size_t changesBefore = changes.size();
    if (before.locked && !after.locked) {
        changes.emplace_back("PTP lost its lock");
    } else if (!before.locked && after.locked) {
        changes.push_back("PTP locked, offset " + nanoseconds(after.offsetNs));
    } else if (before.offsetNs != after.offsetNs) {
        changes.push_back("PTP offset " + nanoseconds(after.offsetNs));
    }
    if (before.grandmasterId != after.grandmasterId) {
        changes.push_back("PTP grandmaster " +
                          (after.grandmasterId.empty() ? "none" : after.grandmasterId));
    }
    if (before.clockId != after.clockId) {
        changes.push_back("PTP clock " + after.clockId);
    }
    if (asTuple(before.profile) != asTuple(after.profile)) {
        changes.push_back("PTP profile " + after.profile.name + ", domain " +
                          std::to_string(after.profile.domain));
    }
    addPtpPortChanges(before, after, changes);
    // It moves with every measurement, so it is worth a word only when there is no other.
    if (changes.size() == changesBefore && before.meanPathDelayNs != after.meanPathDelayNs) {
        changes.push_back("PTP path delay " + nanoseconds(after.meanPathDelayNs));
    }
}

void addPortChanges(const std::list<EthBasicInfo>& before, const std::list<EthBasicInfo>& after,
                    Changes& changes) {
    compare(
        before, after,
        [&](const EthBasicInfo& port) {
            changes.push_back("port " + port.name + " new, " + portState(port));
        },
        [&](const EthBasicInfo& known, const EthBasicInfo& port) {
            if (known.state != port.state) {
                changes.push_back("port " + port.name + " " + portState(port));
            } else if (known.speedMbps != port.speedMbps) {
                changes.push_back("port " + port.name + " speed " + std::to_string(port.speedMbps) +
                                  " Mb/s");
            }
            if (known.ip != port.ip) {
                changes.push_back("port " + port.name + " address " + port.ip);
            }
            if (known.sfp.present != port.sfp.present) {
                changes.push_back("port " + port.name + " SFP " +
                                  (port.sfp.present ? "inserted" : "removed"));
            }
        },
        [&](const EthBasicInfo& port) { changes.push_back("port " + port.name + " gone"); });
}

void addNewSession(const SessionStatusData& session, Changes& changes) {
    changes.push_back(named(session) + " new (" + counted(session.streams.size(), "stream") + ")");
    addAlarmChanges(named(session), {}, session.alarms, changes);
    for (const StreamStatusData& stream : session.streams) {
        addAlarmChanges(named(session, stream), {}, stream.alarms, changes);
    }
}

void addSessionChanges(const SessionStatusData& before, const SessionStatusData& after,
                       Changes& changes) {
    if (before.nmosId != after.nmosId) {
        changes.push_back(named(after) + " NMOS id " + after.nmosId);
    }
    addAlarmChanges(named(after), before.alarms, after.alarms, changes);
    compare(
        before.streams, after.streams,
        [&](const StreamStatusData& stream) {
            changes.push_back(named(after, stream) + " new");
            addAlarmChanges(named(after, stream), {}, stream.alarms, changes);
        },
        [&](const StreamStatusData& known, const StreamStatusData& stream) {
            addAlarmChanges(named(after, stream), known.alarms, stream.alarms, changes);
        },
        [&](const StreamStatusData& stream) { changes.push_back(named(after, stream) + " gone"); });
}

void addSessionListChanges(const std::list<SessionStatusData>& before,
                           const std::list<SessionStatusData>& after, Changes& changes) {
    compare(
        before, after, [&](const SessionStatusData& session) { addNewSession(session, changes); },
        [&](const SessionStatusData& known, const SessionStatusData& session) {
            addSessionChanges(known, session, changes);
        },
        [&](const SessionStatusData& session) { changes.push_back(named(session) + " removed"); });
}

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

std::string summaryLine(const WebNotifierDeviceStatus& status) {
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
        return summaryLine(known);
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
