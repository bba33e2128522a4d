#pragma once

#include "gateway/DeviceState.hpp"

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace gateway {

/// How well a monitored thing is, from best to worst. Links say all-up, some-down and all-down for
/// the last three.
enum class Health { unknown, healthy, partiallyHealthy, unhealthy };

/// "inactive", "healthy", "partially-healthy" or "unhealthy".
const char* word(Health health);

/// What a monitor's word says; nothing for a word that no monitor has.
std::optional<Health> healthOf(std::string_view word);

/// What its alarms and its streams' make of a session.
Health healthOf(const AlarmCounts& alarms);

/// The device's health in the words of AMWA BCP-008: an interpretation of its state, no NMOS
/// Control endpoint. A worse status shows at once, a better one after it has held for three
/// seconds.
class Monitors {
public:
    struct Verdict {
        Health health = Health::unknown;
        /// For a person.
        std::string message;

        bool operator==(const Verdict&) const = default;
    };

    /// Looks at the device again, after `changes` of it and at least once a second. Returns a
    /// "monitor" event for each monitor that shows something else than before.
    DeviceState::Changes update(const DeviceState& device, const DeviceState::Changes& changes,
                                Clock::time_point now);

    /// What the monitors of the whole device show.
    Health overallHealth() const { return overall.shown.health; }
    Health linksHealth() const { return links.shown.health; }
    Health synchronizationHealth() const { return synchronization.shown.health; }
    /// Unknown for a session that is not there.
    Health sessionHealth(std::uint64_t id) const;

    /// Each monitor's word, by name.
    Json::Value words() const;

    /// Those of the whole device, each as in details(), by name.
    Json::Value deviceDetails() const;

    /// A list with word, message, transitions and time of the last change of each.
    Json::Value details() const;

private:
    struct Monitor {
        Verdict shown;
        Json::Value since;
        /// How often it has become worse.
        std::uint64_t transitions = 0;
        /// Since when it has been better than it shows.
        std::optional<Clock::time_point> betterSince;
    };

    static Json::Value toJson(const std::string& name, const Monitor& monitor);
    void updateSessions(const DeviceState& device, const DeviceState::Changes& changes,
                        Clock::time_point now, DeviceState::Changes& shown);
    /// Lets a monitor show a verdict, a better one when it has held for as long as `hold`.
    void show(const std::string& name, Monitor& monitor, Verdict verdict, Clock::time_point now,
              Clock::duration hold, DeviceState::Changes& shown) const;
    Verdict worst() const;

    Monitor overall;
    Monitor links;
    Monitor synchronization;
    std::map<std::uint64_t, Monitor> sessions;
    /// Sessions that are better than they show.
    std::set<std::uint64_t> recovering;
    /// When a session has last gone that did not show well.
    std::optional<Clock::time_point> badRemoved;
    /// What is so at the start has no time of its beginning.
    bool isFirst = true;
};

} // namespace gateway
