#pragma once

#include "gateway/DeviceState.hpp"
#include "gateway/Monitors.hpp"

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway {

/// One device as the topics of its instance tell it, and what each message changes. The payloads
/// are kept as they came; what the table of devices shows is kept beside them.
class FleetDevice {
public:
    static constexpr std::size_t kMaxTopics = 1000;
    static constexpr std::size_t kMaxBytes = std::size_t{1024} * 1024;

    explicit FleetDevice(const std::string& instance);

    using Changes = DeviceState::Changes;

    enum class Bound { none, topics, bytes };

    /// What a message about `branch`, the topic behind the instance's level, changes. An empty
    /// payload removes what was told before. `isRetained`: the broker had it already. Beyond a
    /// bound nothing changes but the row's "complete". Throws Json::Exception for a malformed
    /// payload, before anything has changed.
    Bound take(std::string_view branch, const std::string& payload, bool isRetained,
               Changes& changes);

    /// From here on, the broker tells everything anew.
    void beginRetrieval();
    /// Removes what the broker has not told since then: it is true no longer.
    void endRetrieval(Changes& changes);
    /// Whether what has been told since then fits together: the device counts its sessions and
    /// alarms itself.
    bool isWhole() const;

    /// Nothing is known of it any more.
    bool isEmpty() const { return topics.empty(); }

    /// The device in the table of all of them.
    Json::Value row() const;
    /// The same but for when it was last heard.
    const Json::Value& quietRow() const { return shownRow; }
    bool isOnline() const { return shownRow["state"].asString() == "online"; }
    /// The epoch before anything has been heard.
    WallClock::time_point heard() const { return lastHeard; }
    std::chrono::nanoseconds pathDelay() const { return meanPathDelay; }
    /// Names, and whether each is up.
    std::vector<std::pair<std::string, bool>> ports() const;

    /// The API's "source", "device" and "monitors".
    Json::Value toJson() const;

private:
    struct Topic {
        std::string payload;
        std::uint64_t retrieval = 0;
        /// Of a session.
        AlarmCounts alarms;
        /// Of a port.
        bool isUp = false;
    };
    using Topics = std::map<std::string, Topic, std::less<>>;

    void takeValue(std::string_view branch, Topic& topic, const Json::Value& json, bool isRetained,
                   Changes& changes);
    void takeDevice(const Json::Value& json, Json::Value& row, Changes& changes);
    void remove(Topics::iterator topic, Changes& changes);
    void show(Json::Value row, Changes& changes);
    void showComplete(Changes& changes);
    Json::Value portCounts() const;
    Json::Value source() const;

    Topics topics;
    std::size_t bytes = 0;
    std::uint64_t retrieval = 0;
    /// Something has been left out since the retrieval began.
    bool isBeyondBound = false;
    WallClock::time_point lastHeard;
    std::chrono::nanoseconds meanPathDelay{};
    Json::Value deviceJson;
    Json::Value shownRow;
};

} // namespace gateway
