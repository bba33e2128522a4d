#pragma once

#include "gateway/DeviceTopics.hpp"
#include "gateway/MqttClient.hpp"

#include <boost/asio/io_context.hpp>

#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <string>

namespace gateway {

/// The device on a broker, for those who watch many: a retained document for the summary, the
/// clock, each port and each session, and an event for each alarm that is raised or cleared.
///
/// What waits is the name of a topic; its document is made when it goes. However slow the broker
/// is, one value a topic waits, the newest. While the broker is away nothing is published; when it
/// is back, everything is.
class MqttPublisher {
public:
    /// `figures` is kept up to date for the metrics. `onTaken` is called when another gateway lives
    /// at the broker with this instance's name. Throws std::runtime_error for a file that cannot be
    /// used.
    MqttPublisher(boost::asio::io_context& loop, const Broker& broker, const std::string& instance,
                  const Parts& parts, MqttFigures& figures, std::function<void()> onTaken);

    /// The device's state has changed.
    void take(const DeviceState::Changes& changes);

    /// Called a few times a second: sends what is due and looks at the time.
    void tick();

    /// Says that the device is offline and disconnects; then calls `done`.
    void stop(std::function<void()> done);

private:
    enum class Phase {
        away,
        /// The broker's retained messages of this instance are coming.
        reading,
        /// They say that the instance is online, by another gateway or by one that has just died.
        waiting,
        online,
    };

    void enter(Phase next);
    void beginReading();
    void takeMessage(const MqttMessage& message);
    void takeRetained(const std::string& topic, const MqttMessage& message);
    void takeSummary(const std::string& epoch);
    void giveWay();
    void decide();
    void goOnline();
    void clearGhosts();
    void touch(const std::string& topic);
    void touchPtp();
    void touchSummary();
    void addEvents(const Json::Value& before, const Json::Value& after);
    void pump();
    void checkAccess();
    void tellDenied();

    const DeviceTopics topics;
    const DeviceState& device;
    const std::string epoch;
    const std::string branch;
    MqttFigures& figures;
    std::function<void()> onTaken;

    Phase phase = Phase::away;
    Clock::time_point phaseSince;
    /// When a retained message or the answer to the subscription came last.
    std::optional<Clock::time_point> lastRead;
    bool isReadingAll = false;
    /// What the broker's retained messages say of the instance.
    bool isOnlineThere = false;
    std::string epochThere;
    /// Retained topics that may tell of things that are gone.
    std::set<std::string> found;

    std::deque<std::string> events;
    std::deque<std::string> waiting;
    std::set<std::string> isWaiting;
    bool isPtpDue = false;
    Clock::time_point ptpSent;
    Json::Value shownSummary;
    Clock::time_point summarySent;
    /// Since when a summary of our own has been expected to come back.
    std::optional<Clock::time_point> echoAwaited;
    bool isDenied = false;

    MqttClient client;
};

} // namespace gateway
