#include "gateway/MqttClient.hpp"

#include "gateway/ApiText.hpp"
#include "platform/api/Logger.hpp"

#include <boost/asio/post.hpp>
#include <mosquitto.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace gateway {
namespace {

using std::chrono::milliseconds;

constexpr int kQos = 1;
/// Brokers drop what exceeds a client's queue, usually 1,000 messages, retained ones too. With QoS
/// 1 all that is not acknowledged counts, with QoS 0 only what the connection does not take.
constexpr int kSubscriptionQos = 0;
constexpr milliseconds kShortestDelay{100};
constexpr milliseconds kFirstDelay{2000};
constexpr milliseconds kLongestDelay{10000};
constexpr std::chrono::seconds kConnectLimit{10};
constexpr std::chrono::seconds kDisconnectLimit{1};
constexpr const char* kNoAnswer = "no answer";
/// What waits for the loop. Beyond it nothing is read from the broker.
constexpr std::size_t kMaxReports = 512;
constexpr std::size_t kMaxReportBytes = std::size_t{8} * 1024 * 1024;

const char* textOrNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

std::ifstream openFile(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return file;
}

std::string firstLine(const std::string& path) {
    std::string line;
    std::ifstream file = openFile(path);
    (void)std::getline(file, line);
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    return line;
}

} // namespace

std::optional<Broker> Broker::at(std::string_view address, Broker files) {
    constexpr std::string_view kPlain = "mqtt://";
    constexpr std::string_view kSecure = "mqtts://";
    constexpr std::uint16_t kPlainPort = 1883;
    constexpr std::uint16_t kSecurePort = 8883;
    Broker broker = std::move(files);
    broker.isSecure = address.starts_with(kSecure);
    if (!broker.isSecure && !address.starts_with(kPlain)) {
        return std::nullopt;
    }
    address.remove_prefix(broker.isSecure ? kSecure.size() : kPlain.size());
    broker.port = broker.isSecure ? kSecurePort : kPlainPort;
    if (const auto at = address.rfind('@'); at != std::string_view::npos) {
        broker.user = address.substr(0, at);
        address.remove_prefix(at + 1);
        // A password here would be seen in the list of processes.
        if (broker.user.empty() || broker.user.find(':') != std::string::npos) {
            return std::nullopt;
        }
    }
    const auto bracket = address.rfind(']');
    const auto colon = address.rfind(':');
    if (colon != std::string_view::npos && (bracket == std::string_view::npos || colon > bracket)) {
        const std::string_view digits = address.substr(colon + 1);
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), broker.port);
        if (error != std::errc() || end != digits.data() + digits.size() || broker.port == 0) {
            return std::nullopt;
        }
        address = address.substr(0, colon);
    }
    if (address.starts_with('[') && address.ends_with(']')) {
        address = address.substr(1, address.size() - 2);
    }
    broker.host = address;
    if (broker.host.empty() || broker.host.find_first_of("/?# ") != std::string::npos) {
        return std::nullopt;
    }
    return broker;
}

/// One connection, from its attempt to its loss. The library is used from the thread alone, and
/// with our own poll(): its own waiting cannot take descriptors above 1023, and its own loop ends
/// for ever after some errors of TLS.
class MqttClient::Connection {
public:
    /// Throws std::runtime_error for a file that cannot be used.
    explicit Connection(MqttClient& owner);
    ~Connection() = default;
    // The library has its address.
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    Connection(Connection&&) = delete;
    Connection& operator=(Connection&&) = delete;

    /// Returns why it has been lost; nothing when it was to end.
    std::optional<std::string> run();

    bool wasConnected() const { return isConnected; }

private:
    void useTls(const Broker& broker);
    void carryOut(Order& order);
    int exchange(int socket);
    std::string reason(int result) const;

    MqttClient& owner;
    std::unique_ptr<mosquitto, void (*)(mosquitto*)> handle;
    bool isConnected = false;
    std::size_t unacknowledged = 0;
    std::map<int, std::string> filters;
    std::optional<Clock::time_point> endsAt;
    std::string refusal;
    std::string lastError;
};

MqttClient::Connection::Connection(MqttClient& itsOwner)
    : owner(itsOwner),
      handle(mosquitto_new(owner.clientId.c_str(), true, this), mosquitto_destroy) {
    if (!handle) {
        throw std::system_error(errno, std::system_category(), "cannot make an MQTT client");
    }
    const Broker& broker = owner.broker;
    (void)mosquitto_int_option(handle.get(), MOSQ_OPT_TCP_NODELAY, 1);
    if (owner.will) {
        const std::string& payload = owner.will->payload;
        (void)mosquitto_will_set(handle.get(), owner.will->topic.c_str(),
                                 static_cast<int>(payload.size()), payload.data(), kQos,
                                 owner.will->retain);
    }
    if (!broker.user.empty()) {
        // Read for each connection: it may have been changed.
        const std::string password =
            broker.passwordFile.empty() ? "" : firstLine(broker.passwordFile);
        (void)mosquitto_username_pw_set(handle.get(), broker.user.c_str(), textOrNull(password));
    }
    if (broker.isSecure) {
        useTls(broker);
    }
    mosquitto_connect_callback_set(handle.get(), [](mosquitto*, void* object, int code) {
        auto& self = *static_cast<Connection*>(object);
        if (code != 0) {
            self.refusal = mosquitto_connack_string(code);
            return;
        }
        self.isConnected = true;
        ++self.owner.connectionsMade;
        self.owner.report({Report::Kind::connected, {}});
    });
    mosquitto_publish_callback_set(handle.get(), [](mosquitto*, void* object, int) {
        auto& self = *static_cast<Connection*>(object);
        --self.unacknowledged;
        self.owner.report({Report::Kind::acknowledged, {}});
    });
    mosquitto_subscribe_callback_set(
        handle.get(), [](mosquitto*, void* object, int id, int count, const int* granted) {
            constexpr int kRefused = 0x80;
            auto& self = *static_cast<Connection*>(object);
            const bool isGranted = count > 0 && *granted != kRefused;
            self.owner.report({Report::Kind::subscribed, {self.filters[id], ""}, isGranted});
            self.filters.erase(id);
        });
    mosquitto_message_callback_set(
        handle.get(), [](mosquitto*, void* object, const mosquitto_message* message) {
            const auto* const bytes = static_cast<const char*>(message->payload);
            const auto size = static_cast<std::size_t>(message->payloadlen);
            static_cast<Connection*>(object)->owner.report(
                {Report::Kind::message,
                 {message->topic, size == 0 ? "" : std::string(bytes, size), message->retain}});
        });
    mosquitto_log_callback_set(handle.get(),
                               [](mosquitto*, void* object, int level, const char* text) {
                                   if (level == MOSQ_LOG_ERR) {
                                       static_cast<Connection*>(object)->lastError = text;
                                   }
                               });
}

void MqttClient::Connection::useTls(const Broker& broker) {
    for (const std::string* const file : {&broker.ca, &broker.certificate, &broker.key}) {
        if (!file->empty()) {
            (void)openFile(*file);
        }
    }
    const char* const systemFolder = broker.ca.empty() ? X509_get_default_cert_dir() : nullptr;
    const int result =
        mosquitto_tls_set(handle.get(), textOrNull(broker.ca), systemFolder,
                          textOrNull(broker.certificate), textOrNull(broker.key), nullptr);
    if (result != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error(std::string("cannot use TLS to the broker: ") +
                                 mosquitto_strerror(result));
    }
}

std::optional<std::string> MqttClient::Connection::run() {
    const Clock::time_point deadline = Clock::now() + kConnectLimit;
    int result = mosquitto_connect_async(handle.get(), owner.broker.host.c_str(), owner.broker.port,
                                         static_cast<int>(kKeepAlive.count()));
    while (result == MOSQ_ERR_SUCCESS && !owner.isStopping()) {
        const int socket = mosquitto_socket(handle.get());
        const Clock::time_point now = Clock::now();
        if (socket < 0 || (endsAt && (!isConnected || now >= *endsAt))) {
            return std::nullopt;
        }
        if (!isConnected && now >= deadline) {
            return kNoAnswer;
        }
        result = exchange(socket);
        for (Order& order : owner.takeOrders()) {
            carryOut(order);
        }
        if (endsAt && unacknowledged == 0) {
            (void)mosquitto_disconnect(handle.get());
        }
    }
    // It may fail right when it is to end.
    return result == MOSQ_ERR_SUCCESS || endsAt ? std::nullopt : std::optional(reason(result));
}

/// Waits for something to do, reads and writes. Returns the library's code.
int MqttClient::Connection::exchange(int socket) {
    constexpr milliseconds kLook{250};
    short wanted = POLLIN;
    if (mosquitto_want_write(handle.get())) {
        wanted |= POLLOUT;
    }
    std::array<pollfd, 2> items = {pollfd{socket, wanted, 0},
                                   pollfd{owner.wakeDescriptor, POLLIN, 0}};
    (void)::poll(items.data(), items.size(), static_cast<int>(kLook.count()));
    const short happened = items.front().revents;
    int result = MOSQ_ERR_SUCCESS;
    if ((happened & (POLLIN | POLLERR | POLLHUP)) != 0) {
        // Bytes that TLS has decrypted already do not show at the descriptor.
        const SSL* secure = nullptr;
        do {
            result = mosquitto_loop_read(handle.get(), 1);
            secure = static_cast<const SSL*>(mosquitto_ssl_get(handle.get()));
        } while (result == MOSQ_ERR_SUCCESS && secure != nullptr && SSL_pending(secure) > 0);
    }
    if (result == MOSQ_ERR_SUCCESS && (happened & POLLOUT) != 0) {
        result = mosquitto_loop_write(handle.get(), 1);
    }
    return result == MOSQ_ERR_SUCCESS ? mosquitto_loop_misc(handle.get()) : result;
}

void MqttClient::Connection::carryOut(Order& order) {
    const MqttMessage& message = order.message;
    int id = 0;
    int result = MOSQ_ERR_SUCCESS;
    if (order.kind != Order::Kind::disconnect && order.connection != owner.connectionsMade) {
        return;
    }
    switch (order.kind) {
    case Order::Kind::publish:
        ++unacknowledged;
        result = mosquitto_publish(handle.get(), nullptr, message.topic.c_str(),
                                   static_cast<int>(message.payload.size()), message.payload.data(),
                                   kQos, message.retain);
        if (result != MOSQ_ERR_SUCCESS && result != MOSQ_ERR_NO_CONN) {
            --unacknowledged;
            owner.report(
                {Report::Kind::acknowledged, {message.topic, mosquitto_strerror(result)}, false});
        }
        break;
    case Order::Kind::subscribe:
        if (mosquitto_subscribe(handle.get(), &id, message.topic.c_str(), kSubscriptionQos) ==
            MOSQ_ERR_SUCCESS) {
            filters[id] = message.topic;
        }
        break;
    case Order::Kind::unsubscribe:
        (void)mosquitto_unsubscribe(handle.get(), nullptr, message.topic.c_str());
        break;
    case Order::Kind::disconnect:
        endsAt = Clock::now() + kDisconnectLimit;
        break;
    }
}

std::string MqttClient::Connection::reason(int result) const {
    if (!refusal.empty()) {
        return refusal;
    }
    // What TLS finds wrong is told as one or the other, by the library's version.
    if ((result == MOSQ_ERR_TLS || result == MOSQ_ERR_ERRNO) && !lastError.empty()) {
        return lastError;
    }
    if (result == MOSQ_ERR_ERRNO) {
        return std::system_category().message(errno);
    }
    return result == MOSQ_ERR_KEEPALIVE ? kNoAnswer : mosquitto_strerror(result);
}

MqttClient::MqttClient(boost::asio::io_context& ioContext, Broker itsBroker, std::string itsId,
                       std::optional<MqttMessage> itsWill, Handlers itsHandlers)
    : loop(ioContext), broker(std::move(itsBroker)), clientId(std::move(itsId)),
      will(std::move(itsWill)), handlers(std::move(itsHandlers)),
      wakeDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wakeDescriptor < 0) {
        throw std::system_error(errno, std::system_category(), "cannot make a descriptor");
    }
    static const int isReady = mosquitto_lib_init();
    (void)isReady;
    try {
        // What is wrong with a file shows at the start.
        const Connection probe(*this);
    } catch (...) {
        ::close(wakeDescriptor);
        throw;
    }
    // Signals are the loop's. SIGPIPE of a broken connection is nobody's.
    sigset_t all{};
    sigset_t before{};
    ::sigfillset(&all);
    (void)::pthread_sigmask(SIG_SETMASK, &all, &before);
    thread = std::thread([this] { run(); });
    (void)::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

MqttClient::~MqttClient() {
    {
        const std::lock_guard lock(mutex);
        stopWanted = true;
    }
    taken.notify_one();
    (void)::eventfd_write(wakeDescriptor, 1);
    thread.join();
    ::close(wakeDescriptor);
}

void MqttClient::publish(MqttMessage message) {
    ++unacknowledged;
    order(Order::Kind::publish, std::move(message));
}

void MqttClient::subscribe(std::string filter) {
    order(Order::Kind::subscribe, {std::move(filter), ""});
}

void MqttClient::unsubscribe(std::string filter) {
    order(Order::Kind::unsubscribe, {std::move(filter), ""});
}

void MqttClient::disconnect(std::function<void()> done) {
    ended = std::move(done);
    order(Order::Kind::disconnect, {});
}

void MqttClient::order(Order::Kind kind, MqttMessage message) {
    bool wasEmpty = false;
    {
        const std::lock_guard lock(mutex);
        wasEmpty = orders.empty();
        orders.push_back({kind, std::move(message), connection});
    }
    if (wasEmpty) {
        (void)::eventfd_write(wakeDescriptor, 1);
    }
}

void MqttClient::takeReports() {
    std::deque<Report> batch;
    {
        const std::lock_guard lock(mutex);
        batch.swap(reports);
        reportBytes = 0;
    }
    taken.notify_one();
    for (Report& each : batch) {
        take(each);
    }
    if (!ended) {
        handlers.onSettled();
    }
}

void MqttClient::take(Report& report) {
    if (report.kind == Report::Kind::ended) {
        isConnected = false;
        std::exchange(ended, [] {})();
        return;
    }
    if (ended) {
        return;
    }
    switch (report.kind) {
    case Report::Kind::connected:
        isConnected = true;
        ++connection;
        unacknowledged = 0;
        toldReason.clear();
        Logger::log(Logger::LOG_LEVEL_NTF, "connected to the broker %s port %u",
                    broker.host.c_str(), unsigned{broker.port});
        handlers.onConnected();
        break;
    case Report::Kind::failed:
        takeFailure(report.message.payload);
        break;
    case Report::Kind::subscribed:
        handlers.onSubscribed(report.message.topic, report.isGood);
        break;
    case Report::Kind::message:
        handlers.onMessage(report.message);
        break;
    case Report::Kind::acknowledged:
        --unacknowledged;
        if (!report.isGood) {
            Logger::log(Logger::LOG_LEVEL_WRN, "cannot publish %s: %s",
                        report.message.topic.c_str(), report.message.payload.c_str());
        }
        break;
    case Report::Kind::ended:
        break;
    }
}

void MqttClient::takeFailure(const std::string& reason) {
    // Told once for each reason, not for each attempt.
    if (reason != toldReason) {
        toldReason = reason;
        Logger::log(Logger::LOG_LEVEL_WRN, "no connection to the broker %s port %u, trying on: %s",
                    broker.host.c_str(), unsigned{broker.port}, reason.c_str());
    }
    if (std::exchange(isConnected, false)) {
        unacknowledged = 0;
        handlers.onDisconnected();
    }
}

void MqttClient::run() {
    std::minstd_rand random(std::random_device{}());
    milliseconds longest = kFirstDelay;
    for (;;) {
        std::optional<std::string> failure;
        try {
            Connection attempt(*this);
            failure = attempt.run();
            if (attempt.wasConnected()) {
                longest = kFirstDelay;
            }
        } catch (const std::runtime_error& error) {
            failure = error.what();
        }
        if (!failure) {
            break;
        }
        report({Report::Kind::failed, {"", *failure}});
        std::uniform_int_distribution<milliseconds::rep> delay(kShortestDelay.count(),
                                                               longest.count());
        if (isEndedWithin(milliseconds(delay(random)))) {
            break;
        }
        longest = std::min(longest * 2, kLongestDelay);
    }
    report({Report::Kind::ended, {}});
}

/// Between two connections.
bool MqttClient::isEndedWithin(milliseconds delay) {
    const Clock::time_point end = Clock::now() + delay;
    while (!isStopping()) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        if (left <= milliseconds::zero()) {
            return false;
        }
        pollfd item{wakeDescriptor, POLLIN, 0};
        (void)::poll(&item, 1, static_cast<int>(left.count()));
        for (const Order& each : takeOrders()) {
            if (each.kind == Order::Kind::disconnect) {
                return true;
            }
        }
    }
    return true;
}

void MqttClient::report(Report report) {
    bool wasEmpty = false;
    {
        std::unique_lock lock(mutex);
        taken.wait(lock, [this] {
            return stopWanted || reports.empty() ||
                   (reports.size() < kMaxReports && reportBytes < kMaxReportBytes);
        });
        wasEmpty = reports.empty();
        reportBytes += report.message.payload.size();
        reports.push_back(std::move(report));
    }
    if (wasEmpty) {
        boost::asio::post(loop, [this] { takeReports(); });
    }
}

std::vector<MqttClient::Order> MqttClient::takeOrders() {
    eventfd_t ignored = 0;
    (void)::eventfd_read(wakeDescriptor, &ignored);
    const std::lock_guard lock(mutex);
    return std::exchange(orders, {});
}

bool MqttClient::isStopping() {
    const std::lock_guard lock(mutex);
    return stopWanted;
}

} // namespace gateway
