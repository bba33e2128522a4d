#include "platform/PlatformProtocol.hpp"
#include "platform/api/ResultCode.hpp"
#include "tests/support/Consumer.hpp"
#include "tests/torture/Checks.hpp"
#include "tests/torture/MannerlyNmosNode.hpp"
#include "tests/torture/Notifier.hpp"
#include "tests/torture/Service.hpp"

#include <chrono>
#include <string>

namespace {

constexpr int kAsked = 1100;
/// What the library gives one context.
constexpr int kSockets = 1023;
/// The service's own: commands, three subscriptions, the request to the NMOS node.
constexpr int kOwnSockets = 5;
constexpr int kFirstPort = 20000;

std::string absentConsumer(int number) {
    return "tcp://127.0.0.1:" + std::to_string(kFirstPort + number);
}

/// Whether a session's status gets through to `consumer`.
void checkSessionArrives(Notifier& sessionManager, Consumer& consumer, std::uint64_t id,
                         const std::string& deviceId) {
    sessionManager.send(AvmgrPublisher::avmgr_session_status, sessionStatus(id, "nmos", deviceId));
    const Json::Value message = consumer.receive();
    require(message["payload"]["id"].asUInt64() == id, "messages go on at the limit");
}

} // namespace

void socketLimit(const Report& report, Form /*form*/) {
    zmq::context_t context;
    Service service(context);
    Notifier sessionManager(context, platform_protocol::kSessionManagerEndpoint);
    sessionManager.waitForSubscriptions(3);
    Consumer consumer(context);
    require(service.addRemote(consumer.address()) == 0, "a consumer is registered");

    int accepted = 1;
    int refused = 0;
    for (int number = 0; number < kAsked - 1; ++number) {
        const int result = service.addRemote(absentConsumer(number));
        require(result == 0 || result == result_code::kConsumerNotConnected,
                "a consumer is accepted or refused with -33, not " + std::to_string(result));
        ++(result == 0 ? accepted : refused);
    }
    report.figure("consumers asked for", kAsked);
    report.figure("accepted", accepted);
    report.figure("refused with -33", refused);
    require(accepted == kSockets - kOwnSockets, "every socket of the library can be used");

    checkSessionArrives(sessionManager, consumer, 1, "device");
    require(service.document()["sessions"].size() == 1, "commands go on at the limit");
    int requests = 0;
    for (const char* name : {"first", "second"}) {
        // Nobody there, then a node that does not answer at first: a fresh attempt to connect would
        // need sockets that are gone.
        sessionManager.send(AvmgrPublisher::avmgr_session_status, sessionStatus(2, name, ""));
        service.waitForDocument(
            [](const Json::Value& document) { return document["device_id"].asString().empty(); });
        const MannerlyNmosNode node(context, [name](int request) {
            MannerlyNmosNode::Manner manner;
            manner.answers = request > 1;
            manner.answer = nmosReply(name);
            return manner;
        });
        service.waitForDocument([&](const Json::Value& document) {
            sessionManager.send(AvmgrPublisher::avmgr_session_status, sessionStatus(2, name, ""));
            return document["device_id"].asString() == name;
        });
        requests += node.requests();
    }
    report.figure("requests to the NMOS node at the limit", requests);
    report.figure("stop at the limit", service.stop().count(), "ms");
}
