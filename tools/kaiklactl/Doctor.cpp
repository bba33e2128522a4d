#include "tools/kaiklactl/Doctor.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/records/JsonMember.hpp"
#include "tools/client/Address.hpp"
#include "tools/client/Failure.hpp"
#include "tools/client/ListeningConsumer.hpp"
#include "tools/client/ServiceConnection.hpp"
#include "tools/client/Waiting.hpp"
#include "tools/kaiklactl/StatusReport.hpp"
#include "tools/kaiklactl/Terminal.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

namespace kaiklactl {
namespace {

using std::chrono::milliseconds;

/// More than the service takes to connect to a consumer that it can reach.
constexpr milliseconds kConnectLimit{500};
/// How long the removal of the doctor's own consumer may take, while no signal is heard. A service
/// that asks its NMOS node in vain for two messages takes as long.
constexpr milliseconds kOwnRemovalLimit{2000};

constexpr const char* kReachable = "reachable";

/// The lines of the report, written as soon as they are known.
class Report {
public:
    explicit Report(StopSignals& stopSignals) : stop(stopSignals) {}

    void ok(const std::string& subject, const std::string& text) {
        line("ok", Style::good, subject, text);
    }
    /// Worth knowing, but nothing is wrong with it as such.
    void note(const std::string& subject, const std::string& text) {
        line("note", Style::warning, subject, text);
    }
    void fault(const std::string& subject, const std::string& text) {
        faulty = true;
        line("FAIL", Style::alarm, subject, text);
    }
    bool hasFault() const { return faulty; }

private:
    void line(const std::string& verdict, Style style, std::string subject,
              const std::string& text) {
        // As wide as the widest of them, so that lines written one by one stand in columns.
        constexpr std::size_t kVerdictWidth = 4;
        constexpr std::size_t kSubjectWidth = 10;
        subject.resize(kSubjectWidth, ' ');
        print(painted(verdict, style, colour) +
                  std::string(kVerdictWidth + 2 - verdict.size(), ' ') + subject + "  " +
                  printable(text).text,
              stop);
    }

    StopSignals& stop;
    bool colour = colourWanted();
    bool faulty = false;
};

/// A consumer that is on the service's list for as long as the object lives.
class TemporaryRegistration {
public:
    TemporaryRegistration(zmq::context_t& zmqContext, const client::Service& itsService,
                          std::string consumer, StopSignals& stop)
        : context(zmqContext), service(itsService), address(std::move(consumer)) {
        try {
            client::request(context, service, WebNotifierCommand::add_remote_info_consumer,
                            client::consumerPayload(address), &stop);
        } catch (...) {
            // The service may still carry out the request.
            remove();
            throw;
        }
    }
    ~TemporaryRegistration() { remove(); }
    TemporaryRegistration(const TemporaryRegistration&) = delete;
    TemporaryRegistration& operator=(const TemporaryRegistration&) = delete;
    TemporaryRegistration(TemporaryRegistration&&) = delete;
    TemporaryRegistration& operator=(TemporaryRegistration&&) = delete;

private:
    void remove() noexcept {
        try {
            client::removeConsumer(
                context, {service.endpoint, std::min(service.timeout, kOwnRemovalLimit)}, address);
        } catch (const std::exception& error) {
            notice(address + " may still be registered: " + error.what());
        }
    }

    zmq::context_t& context;
    const client::Service& service;
    const std::string address;
};

class Doctor {
public:
    Doctor(const Options& doctorOptions, zmq::context_t& zmqContext, StopSignals& stopSignals)
        : options(doctorOptions), service{options.server, options.timeout}, context(zmqContext),
          stop(stopSignals), report(stopSignals) {}

    ExitStatus run() {
        try {
            const auto start = client::Clock::now();
            consumers = client::registeredConsumers(ask(WebNotifierCommand::get_server_list));
            report.ok("service", "answers at " + service.endpoint + " after " + since(start) + ".");
        } catch (const client::NoAnswer& failure) {
            report.fault("service", failure.what());
            return ExitStatus::noAnswer;
        }
        checkRegistration();
        checkReachability();
        checkMessages();
        return report.hasFault() ? ExitStatus::refused : ExitStatus::success;
    }

private:
    Json::Value ask(WebNotifierCommand::webnotifier_command_id_t command) {
        return client::request(context, service, command, Json::Value(), &stop);
    }

    static std::string since(client::Clock::time_point start) {
        const auto span = client::Clock::now() - start;
        return std::to_string(std::chrono::ceil<milliseconds>(span).count()) + " ms";
    }

    void checkRegistration();
    void checkReachability();
    bool isWorthTrying(const std::string& address);
    void reportReachability(const std::string& address, client::Reachability reachability);

    /// What a consumer of the doctor's own met.
    struct OwnConsumer {
        std::string address;
        std::string deviceId;
        /// Nothing when no message came.
        std::optional<std::string> messageAfter;
    };
    void checkMessages();
    OwnConsumer tryOwnConsumer();
    void reportDeviceId(const OwnConsumer& own);

    const Options& options;
    const client::Service service;
    zmq::context_t& context;
    StopSignals& stop;
    Report report;
    std::vector<std::string> consumers;
};

void Doctor::checkRegistration() {
    constexpr const char* kSubject = "registered";
    const std::string& address = options.address;
    if (address.empty()) {
        if (consumers.empty()) {
            report.note(kSubject, "no consumer is registered, so nothing is sent to anybody. "
                                  "Register one with \"kaiklactl add ADDRESS\".");
        } else {
            report.ok(kSubject, counted(consumers.size(), "consumer") + ".");
        }
    } else if (std::find(consumers.begin(), consumers.end(), address) != consumers.end()) {
        report.ok(kSubject, address + " is registered.");
    } else if (const auto similar = client::similarAddress(consumers, address)) {
        report.note(kSubject, address + " is not registered, but " + *similar +
                                  " is, which leads to the same place.");
    } else {
        report.fault(kSubject, address +
                                   " is not registered; addresses count letter by letter, and "
                                   "a restart of the service forgets them. Register it with "
                                   "\"kaiklactl add " +
                                   address + "\".");
    }
}

void Doctor::checkReachability() {
    std::vector<std::string> addresses;
    for (const std::string& address :
         options.address.empty() ? consumers : std::vector{options.address}) {
        if (isWorthTrying(address)) {
            addresses.push_back(address);
        }
    }
    const std::vector<client::Reachability> found =
        client::tryConnecting(context, addresses, service.timeout, stop);
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        reportReachability(addresses[i], found[i]);
    }
}

bool Doctor::isWorthTrying(const std::string& address) {
    try {
        client::checkConnectable(address);
    } catch (const client::BadEndpoint& failure) {
        report.fault(kReachable, failure.what());
        return false;
    }
    if (client::isOnlyLocal(address) && !client::isOnlyLocal(service.endpoint)) {
        report.note(kReachable, address +
                                    " is only for consumers on the device, and cannot be tried "
                                    "from here. A consumer elsewhere must register its own "
                                    "address.");
        return false;
    }
    return true;
}

void Doctor::reportReachability(const std::string& address, client::Reachability reachability) {
    switch (reachability) {
    case client::Reachability::consumer:
        report.ok(kReachable, "a consumer listens at " + address + ", seen from here.");
        break;
    case client::Reachability::stranger:
        report.fault(kReachable, "something listens at " + address +
                                     ", but it is stopped, or no ZeroMQ PULL socket. Look at what "
                                     "has this port.");
        break;
    case client::Reachability::nobody:
        report.fault(kReachable, "nobody accepts connections at " + address +
                                     " from here. Start the consumer, or look at the firewall of "
                                     "its machine. If it is gone, remove it before it blocks the "
                                     "service: \"kaiklactl drain " +
                                     address + "\".");
        break;
    }
}

void Doctor::checkMessages() {
    constexpr const char* kSubject = "messages";
    OwnConsumer own;
    try {
        own = tryOwnConsumer();
    } catch (const client::NoAnswer&) {
        throw;
    } catch (const client::Failure& failure) {
        report.fault(kSubject,
                     std::string("a consumer of this check is refused: ") + failure.what());
        return;
    }
    reportDeviceId(own);
    if (own.messageAfter) {
        report.ok(kSubject, "one came just now to a consumer of this check, " + *own.messageAfter +
                                " after it registered. When the last one left for another "
                                "consumer, the service's log tells: \"Publishing message to "
                                "socket\".");
    } else if (own.deviceId.empty()) {
        report.fault(kSubject, "none came to a consumer of this check, for want of a device id.");
    } else {
        report.fault(kSubject, "none came to a consumer of this check at " + own.address +
                                   ": the service cannot connect to this machine. Look at the "
                                   "firewalls, and at what the service's unit allows.");
    }
}

/// Registers a consumer of its own, which gets the whole status at once, and waits for that.
Doctor::OwnConsumer Doctor::tryOwnConsumer() {
    client::ListeningConsumer consumer(
        context, "tcp://" + client::ownAddressTowards(service.endpoint) + ":*", service.endpoint);
    OwnConsumer own;
    own.address = consumer.address();
    const auto start = client::Clock::now();
    const TemporaryRegistration registration(context, service, own.address, stop);
    const Json::Value document = ask(WebNotifierCommand::get_device_status)["status"];
    own.deviceId = json_member::text(document, "device_id");
    // Without an id a message comes only from a node that answers and names none: soon or never.
    const milliseconds limit = own.deviceId.empty() ? kConnectLimit : service.timeout;
    std::array<zmq_pollitem_t, 2> items = {consumer.messageItem(), client::pollItem(stop)};
    client::waitFor(items, client::Clock::now() + limit);
    client::throwIfStopped(stop);
    if (consumer.receive()) {
        own.messageAfter = since(start);
    }
    return own;
}

void Doctor::reportDeviceId(const OwnConsumer& own) {
    constexpr const char* kSubject = "device id";
    if (!own.deviceId.empty()) {
        report.ok(kSubject, own.deviceId + ".");
    } else if (own.messageAfter) {
        report.note(kSubject, "the NMOS node names none, so messages carry an empty one. Look at "
                              "the node's configuration.");
    } else {
        report.fault(kSubject, std::string("unknown, and without it nothing is published. The NMOS "
                                           "node of the device gives it: start it, or look why "
                                           "it does not answer at ") +
                                   platform_protocol::kNmosNodeEndpoint + ".");
    }
}

} // namespace

ExitStatus runDoctor(const Options& options, zmq::context_t& context, StopSignals& stop) {
    return Doctor(options, context, stop).run();
}

} // namespace kaiklactl
