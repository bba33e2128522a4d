#include "platform/PlatformProtocol.hpp"
#include "platform/api/ResultCode.hpp"
#include "tests/torture/Checks.hpp"
#include "tests/torture/Notifier.hpp"
#include "tests/torture/NumberedConsumer.hpp"
#include "tests/torture/Service.hpp"

#include <list>
#include <string>

void descriptorLimit(const Report& report, Form /*form*/) {
    constexpr int kLimit = 64;
    constexpr int kPatienceMs = 5000;
    zmq::context_t context;
    Service service(
        context,
        {.arguments = {}, .launcher = {"/usr/bin/prlimit", "--nofile=" + std::to_string(kLimit)}});
    Notifier sessionManager(context, platform_protocol::kSessionManagerEndpoint);
    sessionManager.waitForSubscriptions(3);
    std::int64_t sent = 0;
    const auto sendSome = [&] {
        constexpr int kSome = 100;
        for (int i = 0; i < kSome; ++i) {
            sessionManager.send(AvmgrPublisher::avmgr_session_status,
                                sessionStatus(1, std::to_string(sent++)));
        }
    };

    // Each consumer takes one descriptor when it is registered and one when it is connected to, so
    // that the last ones are registered without ever being reached.
    std::list<NumberedConsumer> consumers;
    int result = 0;
    int accepted = 0;
    while (result == 0 && accepted < kLimit) {
        consumers.emplace_back(context);
        result = service.addRemote(consumers.back().address());
        accepted += result == 0 ? 1 : 0;
    }
    require(result == result_code::kConsumerNotConnected,
            "a consumer for whom there is no descriptor is refused with -33");
    report.figure("descriptors allowed", kLimit);
    report.figure("consumers accepted", accepted);
    sendSome();
    require(consumers.front().readUpTo(sent - 1, kPatienceMs), "messages go on at the limit");
    require(service.document()["sessions"].size() == 1, "commands go on at the limit");

    // Room again: for a client that could not get in, and for the consumers that waited.
    CommandClient newcomer(context);
    constexpr int kRemoved = 8;
    for (int i = 0; i < kRemoved; ++i) {
        require(service.removeRemote(consumers.front().address()) == 0, "a consumer is removed");
        consumers.pop_front();
    }
    require(newcomer.request(3)["result"].asInt() == 0, "a client gets in when there is room");
    consumers.emplace_back(context);
    require(service.addRemote(consumers.back().address()) == 0,
            "a consumer is accepted when there is room");
    sendSome();
    require(consumers.front().readUpTo(sent - 1, kPatienceMs), "messages go on after the limit");
    report.figure("stop", service.stop().count(), "ms");
}
