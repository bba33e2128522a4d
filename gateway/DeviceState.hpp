#pragma once

#include "gateway/ApiText.hpp"
#include "model/DeviceStatus.hpp"

#include <json/value.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/// Alarms by severity, in the words that the metrics use. A word that is none of the first four
/// counts as other.
struct AlarmCounts {
    enum Severity : std::size_t { critical, major, minor, warning, other, severities };
    static constexpr std::array<const char*, severities> kNames = {"critical", "major", "minor",
                                                                   "warning", "other"};
    std::array<std::uint64_t, severities> number{};

    void add(std::string_view severity);
    void add(const AlarmCounts& more);
};

/// What one event is about.
struct Change {
    /// "session", "session-removed", "ptp", "port", "port-removed" or "device".
    std::string kind;
    /// The event's data.
    Json::Value data;
    /// The session that has changed or is removed, as it was; null for a new one.
    Json::Value before{};
};

/// What the gateway knows about the device, in the API's form, and what each message changes in it.
/// Ids are texts there (a browser loses digits above 2^53); what is not known is null.
class DeviceState {
public:
    struct Session {
        Json::Value json;
        AlarmCounts alarms;
        std::uint64_t streams = 0;
        /// The worst alarm for a person: "stream 71: major: no RTP packets received (3)", or empty.
        std::string worst;
        /// The message that this came with.
        std::uint64_t message = 0;
    };

    /// What the sessions hold together.
    struct Totals {
        std::uint64_t sessions = 0;
        std::uint64_t streams = 0;
        AlarmCounts alarms;
    };

    using Changes = std::vector<Change>;

    /// A "status-all" message.
    Changes takeStatus(const WebNotifierDeviceStatus& status);

    /// A "status-session" message.
    Changes takeSession(const SessionStatusData& session);

    /// How many messages have been taken in; what a request for the status remembers.
    std::uint64_t messages() const { return message; }

    /// The answer to a request that was made when `requested` messages had been taken in. What a
    /// message has told since then may be newer than the answer, and stays.
    Changes takeAnswer(const WebNotifierDeviceStatus& status, std::uint64_t requested);

    /// Whether anything has been heard at all.
    bool known() const { return isKnown; }

    const std::string& deviceId() const { return id; }
    /// Null before any PTP status.
    const Json::Value& ptp() const { return ptpJson; }
    /// By name.
    const std::map<std::string, Json::Value>& ports() const { return portsByName; }
    const std::map<std::uint64_t, Session>& sessions() const { return sessionsById; }
    /// One session, null when there is none.
    const Json::Value* session(std::uint64_t id) const;
    Totals totals() const;
    /// How often the grandmaster has changed, and when it did last.
    std::uint64_t grandmasterChanges() const { return grandmasterChangeCount; }
    Clock::time_point grandmasterChanged() const { return lastGrandmasterChange; }

    /// The API's "device"; null before anything is known.
    Json::Value toJson() const;

private:
    void takeDeviceId(const std::string& deviceId, Changes& changes);
    void takeOneSession(const SessionStatusData& session, Changes& changes);
    void takePtp(const PtpCommonInfo& ptp, Changes& changes);
    void takePorts(const std::list<EthBasicInfo>& eths, Changes& changes);
    void takeAllSessions(const std::list<SessionStatusData>& sessions, std::uint64_t requested,
                         Changes& changes);
    /// Null while what is told was so before the gateway started.
    Json::Value now() const;

    bool isKnown = false;
    std::uint64_t message = 0;
    std::uint64_t wholeMessage = 0;
    std::string id;
    Json::Value ptpJson;
    std::map<std::string, Json::Value> portsByName;
    std::map<std::uint64_t, Session> sessionsById;
    std::uint64_t grandmasterChangeCount = 0;
    Clock::time_point lastGrandmasterChange;
};

} // namespace gateway
