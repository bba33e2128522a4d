#pragma once

#include <boost/asio/io_context.hpp>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace gateway {

/// An MQTT broker, and who one is there.
struct Broker {
    std::string host;
    std::uint16_t port = 0;
    bool isSecure = false;
    /// Empty for none.
    std::string user;

    /// Files, each empty for none. The password is the first line of its file.
    std::string passwordFile;
    /// What the broker's certificate is checked against, PEM; without it, what the system trusts.
    std::string ca;
    /// The client's own certificate and its key, PEM.
    std::string certificate;
    std::string key;

    /// Reads "mqtt[s]://[user@]host[:port]", and takes the files over from `files`. Nothing when
    /// `address` is none, or has a password in it.
    static std::optional<Broker> at(std::string_view address, Broker files);
};

struct MqttMessage {
    std::string topic;
    std::string payload;
    /// Kept by the broker: true to publish it so. A message that has come is retained when the
    /// broker had it from before the subscription.
    bool retain = false;
};

/// A connection to a broker, MQTT 3.1.1, which is made again as often as it is lost, after a random
/// delay that grows. What is published goes with QoS 1, what comes with QoS 0. The library has a
/// thread of its own; the functions here are called from the loop, and every handler is called on
/// the loop.
///
/// Nothing is kept for a broker that is away: what has been published and not acknowledged when the
/// connection is lost may never arrive, and subscriptions are made again by onConnected.
class MqttClient {
public:
    /// More is not under way at a time.
    static constexpr std::size_t kMaxUnacknowledged = 20;
    static constexpr std::chrono::seconds kKeepAlive{15};

    /// All of them are needed.
    struct Handlers {
        std::function<void()> onConnected;
        /// Only after onConnected.
        std::function<void()> onDisconnected;
        /// The answer to a subscription.
        std::function<void(const std::string& filter, bool isGranted)> onSubscribed;
        std::function<void(MqttMessage& message)> onMessage;
        /// After one or more of the above, and after acknowledgements: hasRoom() may be true again.
        std::function<void()> onSettled;
    };

    /// Begins to connect. `clientId` must be unlike every other at the broker. The broker publishes
    /// `will` when the connection is lost. Throws std::runtime_error for a file that cannot be
    /// used. The loop must not run any more when this is destroyed; the will is then published.
    MqttClient(boost::asio::io_context& loop, Broker broker, std::string clientId,
               std::optional<MqttMessage> will, Handlers handlers);
    ~MqttClient();
    MqttClient(const MqttClient&) = delete;
    MqttClient& operator=(const MqttClient&) = delete;
    MqttClient(MqttClient&&) = delete;
    MqttClient& operator=(MqttClient&&) = delete;

    bool connected() const { return isConnected; }

    /// Whether another message may be published now.
    bool hasRoom() const { return isConnected && unacknowledged < kMaxUnacknowledged; }

    /// Whether everything that was published has been acknowledged.
    bool isIdle() const { return unacknowledged == 0; }

    /// What comes too late for this connection is dropped.
    void publish(MqttMessage message);
    void subscribe(std::string filter);
    void unsubscribe(std::string filter);

    /// Waits a second at most for what is not acknowledged yet, and disconnects so that the will is
    /// not published. No handler is called any more, but `done`.
    void disconnect(std::function<void()> done);

private:
    class Connection;

    /// What the loop wants from the thread.
    struct Order {
        enum class Kind { publish, subscribe, unsubscribe, disconnect } kind;
        MqttMessage message;
        /// It is for this connection and no later one.
        std::uint64_t connection = 0;
    };

    /// What the thread tells the loop.
    struct Report {
        enum class Kind { connected, failed, subscribed, message, acknowledged, ended } kind;
        MqttMessage message;
        bool isGood = true;
    };

    void order(Order::Kind kind, MqttMessage message);
    void takeReports();
    void take(Report& report);
    void takeFailure(const std::string& reason);

    // On the thread.
    void run();
    void report(Report report);
    std::vector<Order> takeOrders();
    bool isStopping();
    bool isEndedWithin(std::chrono::milliseconds delay);

    boost::asio::io_context& loop;
    const Broker broker;
    const std::string clientId;
    const std::optional<MqttMessage> will;
    Handlers handlers;
    std::function<void()> ended;
    bool isConnected = false;
    std::uint64_t connection = 0;
    std::size_t unacknowledged = 0;
    std::string toldReason;

    int wakeDescriptor;
    std::mutex mutex;
    std::condition_variable taken;
    std::vector<Order> orders;
    std::deque<Report> reports;
    std::size_t reportBytes = 0;
    bool stopWanted = false;
    /// The thread's own count; orders for an earlier connection are void.
    std::uint64_t connectionsMade = 0;
    std::thread thread;
};

} // namespace gateway
