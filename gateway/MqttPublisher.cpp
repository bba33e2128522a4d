#include "gateway/MqttPublisher.hpp"

#include "gateway/TopicText.hpp"
#include "platform/api/Logger.hpp"
#include "tools/client/ServiceConnection.hpp"

#include <string_view>
#include <utility>

namespace gateway {
namespace {

/// Retained messages have all come when none has for so long.
constexpr std::chrono::seconds kQuiet{2};
/// A broker notices after one and a half keep-alives that a client has died.
constexpr Clock::duration kWaitingLimit = 2 * MqttClient::kKeepAlive;
/// How long after the last retained message every topic is still listened to.
constexpr std::chrono::seconds kReadingLimit{10};
constexpr std::chrono::seconds kPtpInterval{1};
constexpr std::chrono::seconds kSummaryInterval{10};
constexpr std::chrono::seconds kEchoLimit{5};
constexpr std::size_t kMaxEvents = 256;
constexpr std::size_t kMaxFound = 100'000;
constexpr std::string_view kOnline = "online";
constexpr std::string_view kOffline = "offline";

/// The gateway that wrote a summary; empty when it cannot be read.
std::string epochOf(const std::string& payload) {
    try {
        const Json::Value json = client::readObject(payload);
        return json["epoch"].asString();
    } catch (const Json::Exception&) {
        return "";
    }
}

} // namespace

MqttPublisher::MqttPublisher(boost::asio::io_context& loop, const Broker& broker,
                             const std::string& instance, const Parts& parts,
                             MqttFigures& itsFigures, std::function<void()> itsOnTaken)
    : topics(parts), device(parts.device), epoch(parts.ring.epoch()), branch(topicBranch(instance)),
      figures(itsFigures), onTaken(std::move(itsOnTaken)),
      client(loop, broker, "kaikla-" + instance + "-" + epoch,
             MqttMessage{branch + kStateTopic, std::string(kOffline), true},
             {[this] { beginReading(); }, [this] { enter(Phase::away); },
              [this](const std::string&, bool isGranted) {
                  lastRead = Clock::now();
                  if (!isGranted) {
                      tellDenied();
                  }
              },
              [this](const MqttMessage& message) { takeMessage(message); }, [this] { pump(); }}) {}

void MqttPublisher::enter(Phase next) {
    phase = next;
    phaseSince = Clock::now();
    figures.isConnected = client.connected();
    figures.superseded += waiting.size() + events.size();
    waiting.clear();
    isWaiting.clear();
    events.clear();
    isPtpDue = false;
    echoAwaited.reset();
}

void MqttPublisher::beginReading() {
    enter(Phase::reading);
    lastRead.reset();
    isReadingAll = true;
    isOnlineThere = false;
    epochThere.clear();
    found.clear();
    client.subscribe(branch + "#");
}

void MqttPublisher::takeMessage(const MqttMessage& message) {
    if (!message.topic.starts_with(branch)) {
        return;
    }
    const std::string topic = message.topic.substr(branch.size());
    if (message.retain) {
        lastRead = Clock::now();
        takeRetained(topic, message);
    } else if (topic == kDeviceTopic) {
        takeSummary(epochOf(message.payload));
    } else if (topic == kStateTopic) {
        isOnlineThere = message.payload == kOnline;
        if (!isOnlineThere && phase == Phase::online) {
            // Somebody's will: of our own last connection, or of a gateway that gave way.
            touch(kStateTopic);
        }
    }
}

void MqttPublisher::takeRetained(const std::string& topic, const MqttMessage& message) {
    if (topic == kStateTopic) {
        isOnlineThere = message.payload == kOnline;
    } else if (topic == kDeviceTopic) {
        epochThere = epochOf(message.payload);
    } else if (found.size() < kMaxFound) {
        found.insert(topic);
    }
}

/// Each gateway listens to the summary of its own instance. Its own tells that the broker lets it
/// publish; another's tells that two gateways have one name.
void MqttPublisher::takeSummary(const std::string& writer) {
    if (writer == epoch) {
        echoAwaited.reset();
        if (std::exchange(isDenied, false)) {
            Logger::log(Logger::LOG_LEVEL_NTF, "the broker takes what is under %s now",
                        branch.c_str());
        }
    } else if (!writer.empty() &&
               (phase == Phase::waiting || (phase == Phase::online && writer < epoch))) {
        giveWay();
    }
}

void MqttPublisher::giveWay() {
    // The instance is not ours to be told offline.
    enter(Phase::away);
    onTaken();
}

void MqttPublisher::take(const DeviceState::Changes& changes) {
    for (const Change& change : changes) {
        if (change.kind == "session") {
            const Json::Value& session = change.data["session"];
            touch(sessionTopic(session["id"].asString()));
            addEvents(change.before, session);
        } else if (change.kind == "session-removed") {
            touch(sessionTopic(change.data["id"].asString()));
            addEvents(change.before, Json::Value());
        } else if (change.kind == "ptp") {
            figures.superseded += isPtpDue ? 1 : 0;
            isPtpDue = true;
        } else if (change.kind == "port") {
            touch(portTopic(change.data["port"]["name"].asString()));
        } else if (change.kind == "port-removed") {
            touch(portTopic(change.data["name"].asString()));
        }
    }
    touchPtp();
    pump();
}

void MqttPublisher::tick() {
    const Clock::time_point now = Clock::now();
    if (phase == Phase::reading || phase == Phase::waiting) {
        decide();
    }
    if (phase == Phase::online) {
        clearGhosts();
        touchPtp();
        touchSummary();
        checkAccess();
        if (isReadingAll && now - *lastRead >= kReadingLimit) {
            isReadingAll = false;
            client.subscribe(branch + kStateTopic);
            client.subscribe(branch + kDeviceTopic);
            client.unsubscribe(branch + "#");
        }
    }
    pump();
}

void MqttPublisher::decide() {
    const Clock::time_point now = Clock::now();
    const bool isTaken = isOnlineThere && epochThere != epoch;
    if (phase == Phase::waiting) {
        if (isTaken && now - phaseSince < kWaitingLimit) {
            return;
        }
        goOnline();
    } else if (lastRead && now - *lastRead >= kQuiet) {
        if (!isTaken) {
            goOnline();
            return;
        }
        // One that lives tells a summary within its interval; for one that does not, the broker
        // publishes the will.
        enter(Phase::waiting);
        Logger::log(Logger::LOG_LEVEL_WRN,
                    "the broker has %s as online already; waiting up to %lld s for a sign of it",
                    branch.c_str(),
                    static_cast<long long>(
                        std::chrono::duration_cast<std::chrono::seconds>(kWaitingLimit).count()));
    }
}

void MqttPublisher::goOnline() {
    enter(Phase::online);
    Logger::log(Logger::LOG_LEVEL_NTF, "publishing under %s", branch.c_str());
    for (const std::string& topic : topics.all()) {
        touch(topic);
    }
    clearGhosts();
    // Behind what makes it true.
    touch(kStateTopic);
}

/// What the broker has, and the device has not any more. Nobody can tell before the device has
/// been heard.
void MqttPublisher::clearGhosts() {
    if (!device.known()) {
        return;
    }
    for (const std::string& topic : found) {
        const bool isOurs = topic == kPtpTopic || topic.starts_with(kPortTopics) ||
                            topic.starts_with(kSessionTopics);
        if (isOurs && !topics.document(topic)) {
            touch(topic);
        }
    }
    found.clear();
}

void MqttPublisher::touch(const std::string& topic) {
    if (phase == Phase::online && isWaiting.insert(topic).second) {
        waiting.push_back(topic);
    } else {
        ++figures.superseded;
    }
}

void MqttPublisher::touchPtp() {
    if (isPtpDue && Clock::now() - ptpSent >= kPtpInterval) {
        isPtpDue = false;
        ptpSent = Clock::now();
        touch(kPtpTopic);
    }
}

void MqttPublisher::touchSummary() {
    Json::Value summary = topics.summary();
    summary["source"].removeMember("age_ms");
    const Clock::time_point now = Clock::now();
    if (summary != shownSummary || now - summarySent >= kSummaryInterval) {
        shownSummary = std::move(summary);
        summarySent = now;
        touch(kDeviceTopic);
    }
}

void MqttPublisher::addEvents(const Json::Value& before, const Json::Value& after) {
    if (phase != Phase::online) {
        return;
    }
    for (std::string& event : alarmEvents(before, after)) {
        events.push_back(std::move(event));
        if (events.size() > kMaxEvents) {
            events.pop_front();
            ++figures.superseded;
        }
    }
}

void MqttPublisher::pump() {
    while (phase == Phase::online && client.hasRoom()) {
        if (!events.empty()) {
            client.publish({branch + kAlarmTopic, std::move(events.front()), false});
            events.pop_front();
            continue;
        }
        if (waiting.empty()) {
            return;
        }
        const std::string topic = std::move(waiting.front());
        waiting.pop_front();
        isWaiting.erase(topic);
        if (topic == kStateTopic) {
            client.publish({branch + topic, std::string(kOnline), true});
            continue;
        }
        if (topic == kDeviceTopic && !echoAwaited) {
            echoAwaited = Clock::now();
        }
        // An empty message removes what the broker has.
        client.publish({branch + topic, topics.document(topic).value_or(""), true});
    }
}

/// A broker acknowledges what its access list forbids, and drops it: only what does not come back
/// tells.
void MqttPublisher::checkAccess() {
    const Clock::time_point now = Clock::now();
    if (echoAwaited && !client.isIdle()) {
        echoAwaited = now;
    }
    if (echoAwaited && now - *echoAwaited >= kEchoLimit) {
        tellDenied();
    }
}

void MqttPublisher::tellDenied() {
    if (!std::exchange(isDenied, true)) {
        Logger::log(Logger::LOG_LEVEL_ERR,
                    "the broker drops what is published under %s: its access list must let this "
                    "gateway write and read there",
                    branch.c_str());
    }
}

void MqttPublisher::stop(std::function<void()> done) {
    if (phase == Phase::online) {
        client.publish({branch + kStateTopic, std::string(kOffline), true});
    }
    phase = Phase::away;
    client.disconnect(std::move(done));
}

} // namespace gateway
