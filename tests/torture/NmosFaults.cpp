#include "platform/PlatformProtocol.hpp"
#include "tests/support/Consumer.hpp"
#include "tests/torture/Checks.hpp"
#include "tests/torture/MannerlyNmosNode.hpp"
#include "tests/torture/Notifier.hpp"
#include "tests/torture/Service.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;
using Manner = MannerlyNmosNode::Manner;

/// A service that does not know its device's id, with one consumer: registering the consumer once
/// more makes it ask the NMOS node, once.
class Unidentified {
public:
    Unidentified()
        : service(context), sessionManager(context, platform_protocol::kSessionManagerEndpoint),
          consumer(context) {
        sessionManager.waitForSubscriptions(3);
        require(service.addRemote(consumer.address()) == 0, "a consumer is registered");
    }

    /// Returns how long the service was busy with it.
    Milliseconds ask() {
        const auto start = Clock::now();
        require(service.addRemote(consumer.address()) == 0,
                "a command succeeds whatever the NMOS node does");
        return std::chrono::duration_cast<Milliseconds>(Clock::now() - start);
    }

    /// Takes the device id away again, which makes the service ask too.
    void forget(std::uint64_t session) {
        sessionManager.send(AvmgrPublisher::avmgr_session_status,
                            sessionStatus(session, "nmos", ""));
        service.waitForDocument([&](const Json::Value& document) {
            const Json::Value& sessions = document["sessions"];
            return !sessions.empty() && sessions[sessions.size() - 1]["id"].asUInt64() == session;
        });
    }

    std::string deviceId() { return service.document()["device_id"].asString(); }

    zmq::context_t context;
    Service service;
    Notifier sessionManager;
    Consumer consumer;
};

constexpr Milliseconds kAtOnce{100};
/// The node's second, and what a loaded machine adds to it.
constexpr Milliseconds kAnswerLimit{platform_protocol::kNmosAnswerTimeoutMs + 300};

const std::array<std::string, 12> kNonsense = {
    "",
    std::string("\xff\xfe") + char(0),
    "null",
    "[]",
    R"({"payload":{"device":{"id":)",
    R"({"payload":7,"result":0})",
    R"({"payload":{"device":"x"},"result":0})",
    R"({"payload":{"device":{"id":{}}},"result":0})",
    R"({"payload":{"device":{"id":["x"]}},"result":0})",
    R"({"payload":{"device":{"id":"x"}},"result":"0"})",
    R"({"payload":{"device":{"id":"x"}},"result":-7})",
    std::string(platform_protocol::kMaxFrameBytes + 1, ' '),
};

void absent(Unidentified& device, const Report& report, int times) {
    Milliseconds longest{0};
    for (int i = 0; i < times; ++i) {
        longest = std::max(longest, device.ask());
    }
    require(longest <= kAtOnce, "a request to an absent node fails at once");
    report.figure("absent: requests", times);
    report.figure("absent: longest request", longest.count(), "ms");
}

void silent(Unidentified& device, const Report& report, int times) {
    const MannerlyNmosNode node(device.context, [](int) {
        Manner manner;
        manner.answers = false;
        return manner;
    });
    Milliseconds longest{0};
    for (int i = 0; i < times; ++i) {
        longest = std::max(longest, device.ask());
    }
    require(node.requests() == times, "a connected node is asked once a publication");
    require(longest <= kAnswerLimit, "a silent node is given up after a second");
    require(device.deviceId().empty(), "no device id comes out of silence");
    report.figure("silent: requests", times);
    report.figure("silent: longest request", longest.count(), "ms");
}

void vanishing(Unidentified& device, const Report& report) {
    const MannerlyNmosNode node(device.context, [](int) {
        Manner manner;
        manner.vanishes = true;
        return manner;
    });
    const Milliseconds taken = device.ask();
    require(node.requests() == 1, "a connected node is asked once a publication");
    require(taken <= kAnswerLimit, "a node that goes away is given up after a second");
    report.figure("gone away while asked: request", taken.count(), "ms");
}

void nonsense(Unidentified& device, const Report& report) {
    const MannerlyNmosNode node(device.context, [](int request) {
        Manner manner;
        manner.answer = kNonsense.at(static_cast<std::size_t>(request) - 1);
        return manner;
    });
    Milliseconds longest{0};
    for (std::size_t i = 0; i < kNonsense.size(); ++i) {
        longest = std::max(longest, device.ask());
        require(device.deviceId().empty(), "no device id comes out of nonsense");
    }
    require(node.requests() == static_cast<int>(kNonsense.size()),
            "a connected node is asked once a publication");
    require(longest <= kAtOnce, "nonsense does not hold the service up");
    report.figure("nonsense: answers", static_cast<std::int64_t>(kNonsense.size()));
    report.figure("nonsense: longest request", longest.count(), "ms");
}

/// Every other answer comes after its request has been given up, while the next one is pending.
void late(Unidentified& device, const Report& report, int times) {
    const MannerlyNmosNode node(device.context, [](int request) {
        constexpr Milliseconds kTooLate{platform_protocol::kNmosAnswerTimeoutMs + 50};
        constexpr Milliseconds kInTime{150};
        Manner manner;
        manner.answer = nmosReply("answer-" + std::to_string(request));
        manner.after = request % 2 == 1 ? kTooLate : kInTime;
        return manner;
    });
    for (int i = 1; i <= times; ++i) {
        device.forget(static_cast<std::uint64_t>(i));
        require(device.deviceId().empty(), "an answer that comes too late gives no device id");
        device.ask();
        const std::string expected = "answer-" + std::to_string(2 * i);
        require(device.deviceId() == expected,
                "a late answer is never taken for the next request's: " + device.deviceId());
    }
    report.figure("late: answers that came while the next request was pending", times);
    report.figure("late: answers taken for the next request's", 0);
}

void slow(Unidentified& device, const Report& report) {
    static constexpr Milliseconds kSlow{600};
    const MannerlyNmosNode node(device.context, [](int) {
        Manner manner;
        manner.answer = nmosReply("slow");
        manner.after = kSlow;
        return manner;
    });
    const Milliseconds taken = device.ask();
    require(device.deviceId() == "slow", "an answer within a second counts");
    report.figure("slow: request", taken.count(), "ms");
}

} // namespace

void nmosNodeFaults(const Report& report, Form form) {
    const bool full = form == Form::full;
    Unidentified device;
    absent(device, report, full ? 200 : 20);
    silent(device, report, full ? 5 : 1);
    vanishing(device, report);
    absent(device, report, full ? 200 : 20);
    nonsense(device, report);
    require(device.consumer.staysSilent(), "nothing is published without the device id");
    late(device, report, full ? 10 : 2);
    device.forget(1);
    slow(device, report);
    report.figure("stop afterwards", device.service.stop().count(), "ms");
}
