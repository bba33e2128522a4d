#include "handler/WebNotifierPublishCommand.hpp"
#include "tests/support/Consumer.hpp"
#include "tests/torture/Checks.hpp"
#include "tests/torture/PlayedService.hpp"
#include "tests/torture/Service.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

enum Played : std::size_t {
    sessionManager,
    systemManager,
    ptpManagement,
    nmosNode,
    playedServices
};
constexpr std::array<const char*, playedServices> kNames = {
    PlayedService::kSessionManager, PlayedService::kSystemManager, PlayedService::kPtpManagement,
    PlayedService::kNmosNode};
using Order = std::array<Played, playedServices>;

/// "LIFE-NUMBER", as the played services mark everything.
struct Mark {
    int life = 0;
    std::int64_t number = -1;

    explicit Mark(const std::string& text) {
        if (const auto dash = text.find('-'); dash != std::string::npos) {
            life = static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
            number = std::strtoll(text.c_str() + dash + 1, nullptr, 10);
        }
    }
};

/// A device whose services live and die, and a consumer that watches what comes of it.
class MortalDevice {
public:
    MortalDevice() : service(context), consumer(context) {
        require(service.addRemote(consumer.address()) == 0, "a consumer is registered");
    }

    void kill(Played which) { processes[which].reset(); }

    void start(Played which) {
        ++lives[which];
        processes[which] = std::make_unique<ChildProcess>(
            std::vector<std::string>{"/proc/self/exe", std::string(PlayedService::kOption),
                                     kNames[which], std::to_string(lives[which])});
        started[which] = Clock::now();
    }

    /// Receives for `span`, holding every message against what must be true of it.
    void watch(Milliseconds span) {
        for (const auto end = Clock::now() + span; Clock::now() < end;) {
            const Json::Value message = consumer.receive(Milliseconds(1));
            if (!message.isNull()) {
                take(message);
            }
        }
    }

    /// Receives until the present life of every service has been heard of.
    void watchUntilWhole() {
        constexpr std::chrono::seconds kPromised{1};
        const auto end = Clock::now() + kPromised;
        while (heard != lives) {
            require(Clock::now() < end, "a service that comes back is heard of within a second");
            watch(Milliseconds(1));
        }
    }

    std::int64_t messages = 0;
    std::int64_t numberedMessages = 0;
    Milliseconds longestReturn{0};

private:
    void hear(Played which, int life) {
        if (life == lives[which] && heard[which] != life) {
            heard[which] = life;
            longestReturn =
                std::max(longestReturn,
                         std::chrono::duration_cast<Milliseconds>(Clock::now() - started[which]));
        }
    }

    void takeSession(const Json::Value& session) {
        const Mark mark(session["nmos_id"].asString());
        if (session["id"].asUInt64() == PlayedService::kAnonymousSession) {
            // It is published only when the NMOS node has answered. An answer while the session
            // manager's present life asks can come from a node of an earlier one: still alive then.
            if (processes[nmosNode] != nullptr) {
                hear(nmosNode, lives[nmosNode]);
            }
            return;
        }
        ++numberedMessages;
        require(mark.life != lastSession.life || mark.number == lastSession.number + 1,
                "no message of a living service is lost or out of order");
        require(mark.life >= lastSession.life, "no message comes from an earlier life");
        lastSession = mark;
        hear(sessionManager, mark.life);
    }

    void take(const Json::Value& message) {
        ++messages;
        const Json::Value& payload = message["payload"];
        if (message["command_id"].asUInt() == WebNotifierPublishCommand::status_session) {
            takeSession(payload);
            return;
        }
        if (payload.isMember("eths")) {
            hear(systemManager, Mark(payload["eths"][0]["mac"].asString()).life);
        }
        hear(ptpManagement, Mark(payload["ptp"]["clock_id"].asString()).life);
    }

    zmq::context_t context;
    Service service;
    Consumer consumer;
    std::array<std::unique_ptr<ChildProcess>, playedServices> processes;
    std::array<int, playedServices> lives{};
    std::array<int, playedServices> heard{};
    std::array<Clock::time_point, playedServices> started{};
    Mark lastSession{""};
};

} // namespace

void servicesRestarted(const Report& report, Form form) {
    MortalDevice device;
    Order order = {sessionManager, systemManager, ptpManagement, nmosNode};
    for (const Played which : order) {
        device.start(which);
    }
    device.watchUntilWhole();

    // All 24 orders, or every fifth of them.
    const int step = form == Form::full ? 1 : 5;
    int orders = 0;
    int permutation = 0;
    do {
        if (permutation++ % step != 0) {
            continue;
        }
        for (const Played which : order) {
            device.kill(which);
            device.watch(Milliseconds(10));
        }
        for (const Played which : order) {
            device.start(which);
            device.watch(Milliseconds(10));
        }
        device.watchUntilWhole();
        device.watch(Milliseconds(form == Form::full ? 200 : 20));
        ++orders;
    } while (std::next_permutation(order.begin(), order.end()));

    report.figure("orders in which all four services were killed and restarted", orders);
    report.figure("messages received meanwhile", device.messages);
    report.figure("of them numbered, in one life without a gap", device.numberedMessages);
    report.figure("longest time until a restarted service was heard of",
                  device.longestReturn.count(), "ms");
}
