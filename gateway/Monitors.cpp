#include "gateway/Monitors.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace gateway {
namespace {

constexpr std::chrono::seconds kHold{3};
constexpr const char* kOverall = "overall";
constexpr const char* kLinks = "links";
constexpr const char* kSynchronization = "synchronization";
constexpr const char* kNotUsed = "not-used";

// In the order of Health.
constexpr std::array<const char*, 4> kWords = {"inactive", "healthy", "partially-healthy",
                                               "unhealthy"};
constexpr std::array<const char*, 4> kLinkWords = {"inactive", "all-up", "some-down", "all-down"};

std::string sessionName(std::uint64_t id) {
    return "session/" + std::to_string(id);
}

const char* word(const std::string& name, Health health) {
    if (name == kLinks) {
        return kLinkWords.at(static_cast<std::size_t>(health));
    }
    return name == kSynchronization && health == Health::unknown ? kNotUsed : word(health);
}

Monitors::Verdict linksVerdict(const DeviceState& device) {
    std::string down;
    std::size_t downCount = 0;
    for (const auto& [name, port] : device.ports()) {
        if (!port["up"].asBool()) {
            down += (downCount++ == 0 ? "" : ", ") + name;
        }
    }
    if (device.ports().empty()) {
        return {Health::unknown, "no port has been reported"};
    }
    if (downCount == 0) {
        return {Health::healthy, "every port is up"};
    }
    return {downCount == device.ports().size() ? Health::unhealthy : Health::partiallyHealthy,
            "down: " + down};
}

Monitors::Verdict synchronizationVerdict(const DeviceState& device, Clock::time_point now) {
    constexpr std::chrono::seconds kUnsettled{10};
    const Json::Value& ptp = device.ptp();
    if (ptp.isNull()) {
        return {Health::unknown, "no PTP status has been reported"};
    }
    if (!ptp["locked"].asBool()) {
        return {Health::unhealthy, "PTP is not locked"};
    }
    const Json::Value& ports = ptp["ports"];
    const bool hasSlave = std::any_of(ports.begin(), ports.end(), [](const Json::Value& port) {
        return port["state"].asString() == "SLAVE";
    });
    if (!hasSlave) {
        return {Health::partiallyHealthy, "PTP is locked, but no port is SLAVE"};
    }
    if (device.grandmasterChanges() > 0 && now - device.grandmasterChanged() < kUnsettled) {
        return {Health::partiallyHealthy, "the grandmaster has just changed"};
    }
    return {Health::healthy, "PTP is locked"};
}

Monitors::Verdict sessionVerdict(const DeviceState::Session& session) {
    return {healthOf(session.alarms), session.worst.empty() ? "no alarm" : session.worst};
}

} // namespace

const char* word(Health health) {
    return kWords.at(static_cast<std::size_t>(health));
}

std::optional<Health> healthOf(std::string_view word) {
    for (std::size_t i = 0; i < kWords.size(); ++i) {
        if (word == kWords.at(i) || word == kLinkWords.at(i)) {
            return static_cast<Health>(i);
        }
    }
    return word == kNotUsed ? std::optional(Health::unknown) : std::nullopt;
}

Health healthOf(const AlarmCounts& alarms) {
    const auto& number = alarms.number;
    if (number[AlarmCounts::critical] + number[AlarmCounts::major] + number[AlarmCounts::other] >
        0) {
        return Health::unhealthy;
    }
    return number[AlarmCounts::minor] + number[AlarmCounts::warning] > 0 ? Health::partiallyHealthy
                                                                         : Health::healthy;
}

DeviceState::Changes Monitors::update(const DeviceState& device,
                                      const DeviceState::Changes& changes, Clock::time_point now) {
    DeviceState::Changes shown;
    if (!device.known()) {
        return shown;
    }
    show(kLinks, links, linksVerdict(device), now, kHold, shown);
    show(kSynchronization, synchronization, synchronizationVerdict(device, now), now, kHold, shown);
    updateSessions(device, changes, now, shown);
    // The others have held back what is better already, but one that has gone cannot.
    const bool isHeld = badRemoved && now - *badRemoved < kHold;
    show(kOverall, overall, worst(), now, isHeld ? kHold : Clock::duration::zero(), shown);
    isFirst = false;
    return shown;
}

void Monitors::updateSessions(const DeviceState& device, const DeviceState::Changes& changes,
                              Clock::time_point now, DeviceState::Changes& shown) {
    std::set<std::uint64_t> due = recovering;
    if (isFirst) {
        // Messages may have told of sessions before there was a whole status.
        for (const auto& [id, session] : device.sessions()) {
            due.insert(id);
        }
    }
    for (const Change& change : changes) {
        if (change.kind == "session") {
            due.insert(std::stoull(change.data["session"]["id"].asString()));
        } else if (change.kind == "session-removed") {
            due.insert(std::stoull(change.data["id"].asString()));
        }
    }
    for (const std::uint64_t id : due) {
        const auto session = device.sessions().find(id);
        recovering.erase(id);
        if (session == device.sessions().end()) {
            if (sessionHealth(id) > Health::healthy) {
                badRemoved = now;
            }
            sessions.erase(id);
            continue;
        }
        Monitor& monitor = sessions[id];
        show(sessionName(id), monitor, sessionVerdict(session->second), now, kHold, shown);
        if (monitor.betterSince) {
            recovering.insert(id);
        }
    }
}

Health Monitors::sessionHealth(std::uint64_t id) const {
    const auto found = sessions.find(id);
    return found == sessions.end() ? Health::unknown : found->second.shown.health;
}

Json::Value Monitors::words() const {
    Json::Value json;
    json[kOverall] = word(kOverall, overall.shown.health);
    json[kLinks] = word(kLinks, links.shown.health);
    json[kSynchronization] = word(kSynchronization, synchronization.shown.health);
    for (const auto& [id, monitor] : sessions) {
        json[sessionName(id)] = word("", monitor.shown.health);
    }
    return json;
}

Json::Value Monitors::deviceDetails() const {
    Json::Value json;
    json[kOverall] = toJson(kOverall, overall);
    json[kLinks] = toJson(kLinks, links);
    json[kSynchronization] = toJson(kSynchronization, synchronization);
    return json;
}

Json::Value Monitors::details() const {
    Json::Value list(Json::arrayValue);
    for (const Json::Value& each : deviceDetails()) {
        list.append(each);
    }
    for (const auto& [id, monitor] : sessions) {
        list.append(toJson(sessionName(id), monitor));
    }
    return list;
}

Json::Value Monitors::toJson(const std::string& name, const Monitor& monitor) {
    Json::Value json;
    json["name"] = name;
    json["status"] = word(name, monitor.shown.health);
    json["message"] = monitor.shown.message;
    json["transitions"] = Json::UInt64{monitor.transitions};
    json["since"] = monitor.since;
    return json;
}

void Monitors::show(const std::string& name, Monitor& monitor, Verdict verdict,
                    Clock::time_point now, Clock::duration hold,
                    DeviceState::Changes& shown) const {
    const Health before = monitor.shown.health;
    if (verdict.health < before && verdict.health != Health::unknown) {
        if (!monitor.betterSince) {
            monitor.betterSince = now;
        }
        if (now - *monitor.betterSince < hold) {
            return;
        }
    }
    monitor.betterSince.reset();
    if (verdict == monitor.shown) {
        return;
    }
    if (verdict.health > before && before != Health::unknown) {
        ++monitor.transitions;
    }
    if (verdict.health != before) {
        monitor.since = isFirst ? Json::Value() : Json::Value(timeText(WallClock::now()));
    }
    monitor.shown = std::move(verdict);
    shown.push_back({"monitor", toJson(name, monitor)});
}

Monitors::Verdict Monitors::worst() const {
    Verdict result = links.shown;
    std::string name = kLinks;
    if (synchronization.shown.health > result.health) {
        result = synchronization.shown;
        name = kSynchronization;
    }
    for (const auto& [id, monitor] : sessions) {
        if (monitor.shown.health > result.health) {
            result = monitor.shown;
            name = sessionName(id);
        }
    }
    switch (result.health) {
    case Health::unknown:
        result.message = "nothing has been reported";
        break;
    case Health::healthy:
        result.message = "everything is well";
        break;
    default:
        result.message = name + ": " + result.message;
    }
    return result;
}

} // namespace gateway
