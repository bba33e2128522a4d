#include "platform/PlatformProtocol.hpp"
#include "tests/tools/kaikla-sim/SimFixture.hpp"

#include <gmock/gmock.h>

#include <array>
#include <csignal>

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

constexpr const char* kTwoSessions = R"(
{"at_ms": 0, "service": "session", "kind": 1000, "payload": {"id": 1}}
{"at_ms": 0, "service": "session", "kind": 1003, "payload": {"id": 1, "device_id": "@device"}}
{"at_ms": 0, "service": "session", "kind": 1000, "payload": {"id": 2}}
{"at_ms": 0, "service": "session", "kind": 1000, "payload": {"id": 3}}
{"at_ms": 0, "service": "session", "kind": 1001, "payload": {"id": 3}}
{"at_ms": 1, "service": "session", "kind": 1004, "payload": {"id": 1}}
)";

/// A subscriber to the session manager.
class Subscriber {
public:
    Subscriber(zmq::context_t& context, const std::vector<std::string>& topics)
        : socket(context, zmq::socket_type::sub) {
        constexpr int kLimitMs = 10'000;
        socket.set(zmq::sockopt::rcvtimeo, kLimitMs);
        socket.connect(platform_protocol::kSessionManagerEndpoint);
        for (const std::string& topic : topics) {
            socket.set(zmq::sockopt::subscribe, topic);
        }
    }

    /// The next notifications, as "kind id".
    std::vector<std::string> receive(std::size_t count) {
        std::vector<std::string> received;
        zmq::message_t topic;
        zmq::message_t message;
        while (received.size() < count && socket.recv(topic) && socket.recv(message)) {
            const Json::Value json = parseJson(message.to_string());
            EXPECT_EQ(json["command_id"].asString(), topic.to_string());
            received.push_back(topic.to_string() + " " + json["payload"]["id"].asString());
        }
        return received;
    }

private:
    zmq::socket_t socket;
};

class SimTest : public SimFixture {
protected:
    /// Sends `frames` to the NMOS node and returns its answer; null when none came.
    Json::Value askNode(const std::vector<std::string>& frames) {
        zmq::socket_t requester(context, zmq::socket_type::req);
        constexpr int kLimitMs = 10'000;
        requester.set(zmq::sockopt::linger, 0);
        requester.set(zmq::sockopt::rcvtimeo, kLimitMs);
        requester.connect(platform_protocol::kNmosNodeEndpoint);
        sendAll(requester, frames);
        zmq::message_t answer;
        return requester.recv(answer) ? parseJson(answer.to_string()) : Json::Value();
    }
};

TEST_F(SimTest, TellsEachLateSubscriberWhatItAsksFor) {
    playAll(kTwoSessions);
    Subscriber everything(context, {""});
    EXPECT_THAT(everything.receive(4), ElementsAre("1000 1", "1003 1", "1000 2", "1004 1"));
    // Subscribing to what somebody else has subscribed to counts as well.
    Subscriber sessions(context, {"1000", "1001", "1003"});
    EXPECT_THAT(sessions.receive(3), ElementsAre("1000 1", "1003 1", "1000 2"));
    Subscriber more(context, {"1000", "1001", "1003"});
    EXPECT_THAT(more.receive(3), ElementsAre("1000 1", "1003 1", "1000 2"));
    Subscriber advertisements(context, {"1004"});
    EXPECT_THAT(advertisements.receive(1), ElementsAre("1004 1"));
}

TEST_F(SimTest, DropsNothingOfALargeState) {
    std::string lines;
    constexpr std::size_t kSessions = 5000;
    for (std::size_t id = 1; id <= kSessions; ++id) {
        lines += R"({"at_ms": 0, "service": "session", "kind": 1000, "payload": {"id": )" +
                 std::to_string(id) + "}}\n";
    }
    playAll(lines);
    Subscriber late(context, {"1000"});
    EXPECT_EQ(late.receive(kSessions).size(), kSessions);
}

TEST_F(SimTest, AnswersEveryRequestToTheNode) {
    startSim(kTwoSessions, {"--device-id", "given"});
    Json::Value expected;
    expected["device"]["id"] = "given";
    expected["device"]["label"] = "simulated device";
    const std::string request = R"({"command_id":0,"command_name":"GET device info"})";
    EXPECT_EQ(askNode({request})["payload"], expected);

    for (const std::vector<std::string>& frames : std::vector<std::vector<std::string>>{
             {R"({"command_id":1})"},
             {R"({"command_id":"0"})"},
             {R"({"command_id":0,"command_name":[]})"},
             {""},
             {std::string("\0\xff", 2)},
             {std::string(platform_protocol::kMaxFrameBytes + 1, ' ')},
             {request, request},
         }) {
        const Json::Value answer = askNode(frames);
        EXPECT_LT(answer["result"].asInt(), 0) << frames[0].substr(0, 40);
        EXPECT_NE(answer["error"].asString(), "");
    }
    EXPECT_EQ(askNode({request})["payload"], expected);
}

TEST_F(SimTest, LoopsUntilItIsStopped) {
    startSim(kTwoSessions, {"--loop", "--speed", "0.1"});
    EXPECT_TRUE(sim->waitForOutput("has been played", 3));
    EXPECT_EQ(stop(*sim, SIGTERM), 0);

    startSim(kTwoSessions, {"--exit-at-end"});
    EXPECT_EQ(sim->waitForExit(), 0);
    EXPECT_TRUE(sim->waitForOutput("has been played"));
}

TEST_F(SimTest, EndsAtOnceOnASignalWhateverItDoes) {
    for (const int signal : {SIGTERM, SIGINT}) {
        playAll(kTwoSessions);
        EXPECT_EQ(stop(*sim, signal), 0);
    }

    startSim(kTwoSessions, {"--loop", "--speed", "1e9"});
    EXPECT_EQ(stop(*sim, SIGINT), 0);

    // However early it comes.
    for (int attempt = 0; attempt < 20; ++attempt) {
        ChildProcess early({"kaikla-sim"});
        ASSERT_TRUE(attempt % 2 == 0 || early.waitForOutput("ready"));
        EXPECT_THAT(stop(early, SIGTERM), testing::AnyOf(0, 128 + SIGTERM));
    }
}

TEST_F(SimTest, EndsWithASubscriberThatHasStalled) {
    std::string lines;
    const std::string text(100'000, 'x');
    for (int id = 1; id <= 200; ++id) {
        lines += R"({"at_ms": 0, "service": "session", "kind": 1004, "payload": {"id": )" +
                 std::to_string(id) + R"(, "sdp": ")" + text + "\"}}\n";
    }
    playAll(lines);
    zmq::socket_t stalled(context, zmq::socket_type::sub);
    stalled.set(zmq::sockopt::rcvhwm, 1);
    stalled.connect(platform_protocol::kSessionManagerEndpoint);
    stalled.set(zmq::sockopt::subscribe, "1004");
    zmq::pollitem_t item{stalled.handle(), 0, ZMQ_POLLIN, 0};
    ASSERT_EQ(zmq::poll(&item, 1, std::chrono::seconds(10)), 1);
    EXPECT_EQ(stop(*sim, SIGTERM), 0);
}

TEST_F(SimTest, SaysInOneSentenceThatAPortIsTaken) {
    constexpr std::array<const char*, 4> kEndpoints = {
        platform_protocol::kSessionManagerEndpoint, platform_protocol::kSystemManagerEndpoint,
        platform_protocol::kPtpManagementEndpoint, platform_protocol::kNmosNodeEndpoint};
    for (const char* const endpoint : kEndpoints) {
        zmq::socket_t holder(context, zmq::socket_type::rep);
        holder.bind(endpoint);
        const Outcome second = run({"kaikla-sim"});
        EXPECT_EQ(second.status, 1);
        EXPECT_THAT(second.error,
                    MatchesRegex("kaikla-sim: cannot play the .*" + std::string(endpoint) +
                                 ": Address already in use\n"));
        EXPECT_EQ(countOf(second.error, "\n"), 1);
        EXPECT_EQ(second.output, "");
    }
}

} // namespace
