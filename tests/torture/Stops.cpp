#include "platform/PlatformProtocol.hpp"
#include "tests/support/Consumer.hpp"
#include "tests/torture/Checks.hpp"
#include "tests/torture/MannerlyNmosNode.hpp"
#include "tests/torture/Notifier.hpp"
#include "tests/torture/Service.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

/// What the service is doing when the signal comes. With a consumer a stop takes its time, so that
/// queued messages leave; there are fewer of those.
enum class Moment { justReady, idle, flood, askingNmosNode, consumerReading, queueFull };
constexpr std::array<Moment, 10> kMoments = {
    Moment::justReady, Moment::idle,           Moment::flood,           Moment::askingNmosNode,
    Moment::justReady, Moment::flood,          Moment::consumerReading, Moment::consumerReading,
    Moment::queueFull, Moment::askingNmosNode,
};

constexpr const char* kReady = "waiting for commands";
constexpr const char* kAbsentConsumer = "tcp://127.0.0.1:20000";

class Day {
public:
    Day()
        : sessionManager(context, platform_protocol::kSessionManagerEndpoint),
          nmosNode(context, [](int) {
              MannerlyNmosNode::Manner manner;
              manner.answers = false;
              return manner;
          }) {}

    /// From start to end; returns how long the stop took.
    Milliseconds live(Moment moment) {
        ChildProcess child({"kaikla"});
        require(child.waitForError(kReady), "the service gets ready");
        prepare(moment);
        const auto signalAt =
            Clock::now() + std::chrono::microseconds(moment == Moment::justReady ? 0 : random());
        do {
            feed(moment);
        } while (Clock::now() < signalAt);
        return stopProcess(child);
    }

private:
    std::int64_t random() {
        constexpr std::int64_t kLongestUs = 30'000;
        return std::uniform_int_distribution<std::int64_t>(0, kLongestUs)(generator);
    }

    void prepare(Moment moment) {
        if (moment == Moment::justReady) {
            return;
        }
        sessionManager.waitForSubscriptions(3);
        if (moment != Moment::consumerReading && moment != Moment::queueFull) {
            return;
        }
        // The device id is known before, or the service would ask for it.
        send("device");
        CommandClient client(context);
        Json::Value payload;
        payload["address"] = moment == Moment::queueFull ? kAbsentConsumer : consumer.address();
        require(client.request(1, payload)["result"].asInt() == 0, "a consumer is registered");
        if (moment == Moment::queueFull) {
            constexpr int kMoreThanTheQueue = 1500;
            for (int i = 0; i < kMoreThanTheQueue; ++i) {
                send("device");
            }
        }
    }

    void feed(Moment moment) {
        if (moment == Moment::flood || moment == Moment::consumerReading) {
            send("device");
            (void)consumer.receiveText(Milliseconds(0));
        } else if (moment == Moment::askingNmosNode) {
            send("");
        }
    }

    void send(const char* deviceId) {
        sessionManager.send(AvmgrPublisher::avmgr_session_status,
                            sessionStatus(1, std::to_string(number++), deviceId));
    }

    zmq::context_t context;
    Notifier sessionManager;
    MannerlyNmosNode nmosNode;
    Consumer consumer{context};
    std::int64_t number = 0;
    std::mt19937 generator{1};
};

} // namespace

void stops(const Report& report, Form form) {
    const int times = form == Form::full ? 500 : 20;
    Day day;
    Milliseconds longest{0};
    Milliseconds longestWithoutConsumer{0};
    for (int i = 0; i < times; ++i) {
        const Moment moment = kMoments[static_cast<std::size_t>(i) % kMoments.size()];
        const Milliseconds taken = day.live(moment);
        longest = std::max(longest, taken);
        if (moment != Moment::consumerReading && moment != Moment::queueFull) {
            longestWithoutConsumer = std::max(longestWithoutConsumer, taken);
        }
    }
    report.figure("SIGTERM at random moments, each time status 0", times);
    report.figure("longest stop without a consumer", longestWithoutConsumer.count(), "ms");
    report.figure("longest stop", longest.count(), "ms");
}
