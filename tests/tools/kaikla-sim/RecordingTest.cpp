#include "platform/PlatformProtocol.hpp"
#include "tests/tools/kaikla-sim/SimFixture.hpp"
#include "tools/kaikla-sim/Scenario.hpp"

#include <gmock/gmock.h>

#include <poll.h>

#include <csignal>
#include <set>

namespace {

using testing::ElementsAre;
using testing::StartsWith;

/// One of a device's services.
class PlayedService {
public:
    PlayedService(zmq::context_t& context, const char* endpoint)
        : socket(context, zmq::socket_type::xpub) {
        socket.set(zmq::sockopt::linger, 0);
        socket.bind(endpoint);
    }

    bool waitForSubscriptions(std::size_t count) {
        constexpr int kLimitMs = 10'000;
        socket.set(zmq::sockopt::rcvtimeo, kLimitMs);
        zmq::message_t event;
        while (topics.size() < count && socket.recv(event)) {
            topics.insert(event.to_string());
        }
        return topics.size() == count;
    }

    void send(const std::string& topic, const std::string& message) {
        socket.send(zmq::buffer(topic), zmq::send_flags::sndmore);
        socket.send(zmq::buffer(message), zmq::send_flags::none);
    }
    void sendKind(unsigned kind, const std::string& payload) {
        const std::string number = std::to_string(kind);
        send(number, R"({"command_id":)" + number + R"(,"payload":)" + payload + "}");
    }
    void sendOneFrame(const std::string& topic) {
        socket.send(zmq::buffer(topic), zmq::send_flags::none);
    }

private:
    zmq::socket_t socket;
    std::set<std::string> topics;
};

class RecordingTest : public SimFixture {
protected:
    void startRecording() {
        file = freshFileName();
        recorder.emplace(std::vector<std::string>{"kaikla-sim", "record", file});
        ASSERT_TRUE(recorder->waitForError("recording"));
    }
    void stopRecording(int signal) { ASSERT_EQ(stop(*recorder, signal), 0); }

    /// Waits until the recording holds `text`; each line is in the file as soon as it is taken.
    bool waitForRecorded(const std::string& text) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (contentOf(file).find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            ::poll(nullptr, 0, 1);
        }
        return true;
    }

    std::string file;
    std::optional<ChildProcess> recorder;
};

TEST_F(RecordingTest, HoldsWhatEachServiceSaidAndNothingElse) {
    startRecording();
    PlayedService session(context, platform_protocol::kSessionManagerEndpoint);
    PlayedService system(context, platform_protocol::kSystemManagerEndpoint);
    PlayedService ptp(context, platform_protocol::kPtpManagementEndpoint);
    ASSERT_TRUE(session.waitForSubscriptions(7));
    ASSERT_TRUE(system.waitForSubscriptions(4));
    ASSERT_TRUE(ptp.waitForSubscriptions(2));

    const std::string odd =
        R"({"device_id":"real","id":18446744073709551615,"nmos_id":"\u00e9\n","real":-0.1,"unknown":[{}]})";
    session.sendKind(1000, R"({"id":1,"audio":[{"id":11,"class":"sender"}]})");
    session.sendKind(1003, odd);
    session.sendKind(1003, R"({"id":-1})");
    session.sendKind(1003, "[]");
    session.sendKind(1003, R"({"nmos_id":"whose?"})");
    session.send("1003", "not JSON");
    session.send("1003", R"({"command_id":1001,"payload":{"id":1}})");
    session.send("10035", R"({"command_id":10035,"payload":{}})");
    session.send("1003\n", R"({"command_id":1003,"payload":{}})");
    session.sendOneFrame("1003");
    session.sendKind(1004, R"({"id":5,"sdp":")" +
                               std::string(platform_protocol::kMaxFrameBytes - 60, 'x') + "\"}");
    session.sendKind(1001, R"({"id":1})");
    ASSERT_TRUE(waitForRecorded("1001"));
    ptp.sendKind(1000, R"({"locked":true})");
    ASSERT_TRUE(waitForRecorded("locked"));
    system.sendKind(1002, "{}");
    ASSERT_TRUE(waitForRecorded("1002"));

    constexpr int kMalformed = 9;
    EXPECT_TRUE(recorder->waitForError("skipped what the session manager sent", kMalformed))
        << recorder->error();
    stopRecording(SIGINT);
    EXPECT_TRUE(recorder->waitForError("5 notifications recorded"));
    EXPECT_EQ(countOf(recorder->error(), "\n"), kMalformed + 2);

    // What will be sent when the recording is played is what was received.
    const sim::Scenario scenario = sim::readScenarioFile(file, {});
    std::vector<std::string> payloads;
    std::vector<unsigned> kinds;
    for (const sim::ScenarioEvent& event : scenario.events) {
        kinds.push_back(event.kind->number);
        payloads.push_back(toCompactJson(parseJson(event.message)["payload"]));
    }
    EXPECT_THAT(kinds, ElementsAre(1000U, 1003U, 1001U, 1000U, 1002U));
    EXPECT_EQ(parseJson(payloads[1]), parseJson(odd));
    EXPECT_EQ(payloads[0], R"({"audio":[{"class":"sender","id":11}],"id":1})");
    EXPECT_EQ(scenario.deviceId, "real");
}

TEST_F(RecordingTest, ReplaysTheSameDay) {
    startRecording();
    sim.emplace(std::vector<std::string>{"kaikla-sim", "--speed", "20"});
    startService();
    const auto isEvening = [](const Json::Value& seen) {
        return seen["ptp"]["ports"][1]["portSetting1"] == 2 && seen["sessions"].size() == 1 &&
               seen["eths"].size() == 2;
    };
    const Json::Value evening = waitForDocument(isEvening);
    ASSERT_TRUE(evening.isObject());
    ASSERT_TRUE(waitForRecorded(R"("portSetting1":2)"));
    stopRecording(SIGTERM);
    ASSERT_EQ(stop(*sim, SIGTERM), 0);
    service->signal(SIGTERM);
    ASSERT_EQ(service->waitForExit(), 0);

    sim.emplace(std::vector<std::string>{"kaikla-sim", "--scenario", file, "--speed", "5"});
    startService();
    EXPECT_EQ(waitForDocument(isEvening), evening);
}

TEST_F(RecordingTest, GoesToStandardOutputAndEndsWithItsReader) {
    recorder.emplace(std::vector<std::string>{"kaikla-sim", "record", "-"});
    startSim(R"({"at_ms": 1, "service": "ptp", "kind": 1000, "payload": {"clock_id": "seen"}})",
             {"--loop"});
    ASSERT_TRUE(recorder->waitForOutput("seen"));
    EXPECT_THAT(recorder->output(), StartsWith("# "));
    stopRecording(SIGINT);

    // The reader is gone after a line: a later notification cannot be written.
    ChildProcess pipeline(
        {"/bin/bash", "-c",
         "set -o pipefail; " + builtProgram("kaikla-sim") + " record - | head -n 1"});
    EXPECT_EQ(pipeline.waitForExit(), 1);
    EXPECT_TRUE(pipeline.waitForError("cannot write to standard output"));
}

} // namespace
