#include "handler/WebNotifierCommand.hpp"
#include "platform/PlatformProtocol.hpp"
#include "tests/torture/Checks.hpp"
#include "tests/torture/Notifier.hpp"
#include "tests/torture/NumberedConsumer.hpp"
#include "tests/torture/Service.hpp"

#include <algorithm>
#include <chrono>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPatienceMs = 5000;

/// Numbered session messages, and a consumer that reads every one of them.
struct NumberedDevice {
    zmq::context_t context;
    Service service{context};
    Notifier sessionManager{context, platform_protocol::kSessionManagerEndpoint};
    NumberedConsumer steady{context};
    std::int64_t sent = 0;

    NumberedDevice() {
        sessionManager.waitForSubscriptions(3);
        require(service.addRemote(steady.address()) == 0, "a consumer is registered");
    }

    void send(int count, const std::string& ballast = "") {
        for (int i = 0; i < count; ++i) {
            sessionManager.send(AvmgrPublisher::avmgr_session_status,
                                sessionStatus(1, std::to_string(sent++) + ballast));
        }
    }

    /// Sends more than fit into the network's buffers, a little at a time so that none is dropped
    /// on the way to the service. False as soon as they no longer get through.
    bool sendThrough(int count, const std::string& ballast = "", int limitMs = kPatienceMs) {
        constexpr int kAtOnce = 50;
        for (; count > 0; count -= kAtOnce) {
            send(std::min(count, kAtOnce), ballast);
            if (!steady.readUpTo(sent - 1, limitMs)) {
                return false;
            }
        }
        return true;
    }
};

} // namespace

void consumersVanish(const Report& report, Form form) {
    const int rounds = form == Form::full ? 50 : 5;
    constexpr int kMessages = 400;
    NumberedDevice device;
    NumberedConsumer vanishing(device.context);
    NumberedConsumer stalling(device.context);
    require(device.service.addRemote(vanishing.address()) == 0, "a consumer is registered");
    require(device.service.addRemote(stalling.address()) == 0, "a consumer is registered");

    for (int round = 0; round < rounds; ++round) {
        // Both read; one goes while messages are on their way, the other only stops reading.
        require(device.sendThrough(kMessages), "messages reach a consumer that reads");
        vanishing.readAll();
        require(stalling.readUpTo(device.sent - 1, kPatienceMs), "every message arrives");
        device.send(kMessages / 8);
        vanishing.goAway();
        require(device.sendThrough(kMessages), "a consumer that is gone holds nobody up");
        vanishing.comeBack();
        require(device.sendThrough(kMessages / 8), "a consumer that returns holds nobody up");
        require(vanishing.readUpTo(device.sent - 1, kPatienceMs),
                "a consumer that returns gets what was queued for it");
    }
    require(stalling.readUpTo(device.sent - 1, kPatienceMs), "every message arrives");
    report.figure("times a consumer vanished and returned", rounds);
    report.figure("messages", device.sent);
    report.figure("lost by the consumer that reads", device.sent - device.steady.received());
    report.figure("lost by the one that stalls and returns", device.sent - stalling.received());
    report.figure("lost with the connections of the one that vanishes",
                  vanishing.lostWithConnection());
    report.figure("stop", device.service.stop().count(), "ms");
}

void fullQueue(const Report& report, Form form) {
    const int rounds = form == Form::full ? 10 : 1;
    constexpr int kBlockedMs = 300;
    constexpr int kMoreThanFits = 100'000;
    const std::string ballast(4096, '.');
    NumberedDevice device;
    NumberedConsumer stalling(device.context);
    stalling.goAway();
    stalling.takeLittle();
    stalling.comeBack();
    require(device.service.addRemote(stalling.address()) == 0, "a consumer is registered");
    const std::string line = "the queue to " + stalling.address() + " is full";
    CommandClient impatient(device.context);
    const std::string list = R"({"command_id":3})";

    std::int64_t queuedAtLeast = INT64_MAX;
    std::chrono::microseconds longestReturn{0};
    for (int round = 1; round <= rounds; ++round) {
        const std::int64_t before = device.sent;
        require(!device.sendThrough(kMoreThanFits, ballast, kBlockedMs),
                "a full queue blocks the service");
        queuedAtLeast = std::min(queuedAtLeast, device.steady.last() - before);
        require(device.service.process().waitForError(line, round), "the log names who blocks");
        require(!impatient.exchange(list, std::chrono::milliseconds(kBlockedMs)),
                "the whole service waits for the queue");

        const auto start = Clock::now();
        while (device.steady.last() < device.sent - 1) {
            require(stalling.readUpTo(stalling.last() + 1, kPatienceMs), "the queue can be read");
            device.steady.readAll();
        }
        longestReturn =
            std::max(longestReturn,
                     std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start));
        require(impatient.exchange(list).has_value(), "commands are answered again");
        require(stalling.readUpTo(device.sent - 1, kPatienceMs), "every queued message arrives");
        require(countOf(device.service.process().error(), line) < round + 5,
                "one block is not logged over and over");
    }
    report.figure("blocks by a full queue, announced in the log", rounds);
    report.figure("messages that went out before the block, at least", queuedAtLeast);
    report.figure("messages that arrived in order, in all", stalling.received());
    report.figure("lost", device.sent - stalling.received());
    report.figure("longest time from the first read to the service going on",
                  static_cast<double>(longestReturn.count()) / 1000, "ms");

    require(!device.sendThrough(kMoreThanFits, ballast, kBlockedMs),
            "a full queue blocks the service");
    report.figure("stop during a block", device.service.stop().count(), "ms");
    require(device.service.process().waitForError("sending message to socket " +
                                                  stalling.address() + " interrupted"),
            "the log names the send that was interrupted");
}
