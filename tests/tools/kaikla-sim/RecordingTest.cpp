#include "platform/PlatformProtocol.hpp"
#include "tests/tools/kaikla-sim/SimFixture.hpp"
#include "tools/kaikla-sim/Scenario.hpp"

#include <gmock/gmock.h>

#include <poll.h>

#include <csignal>
#include <fstream>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class RecordingTest : public SimFixture {
protected:
    void startRecording() {
        recorder.emplace(std::vector<std::string>{"kaikla-sim", "record", file});
        ASSERT_TRUE(recorder->waitForError("recording"));
    }
    void stopRecording(int signal) { ASSERT_EQ(stop(*recorder, signal), 0); }

    /// Waits until the recording holds `text`; each line is in the file as soon as it is taken.
    bool waitForRecorded(const std::string& text) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (fileText(file).find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            ::poll(nullptr, 0, 1);
        }
        return true;
    }

    const std::string file = directory.file("recording");
    std::optional<ChildProcess> recorder;
};

TEST_F(RecordingTest, HoldsWhatEachServiceSaidAndNothingElse) {
    startRecording();
    playServices();
    const auto publisherOf = [this](sim::Service kind) -> PlayedPublisher& {
        return *(kind == sim::Service::session  ? session
                 : kind == sim::Service::system ? system
                                                : ptp);
    };
    for (const sim::Kind& kind : sim::allKinds()) {
        ASSERT_TRUE(publisherOf(kind.service).waitForSubscription(kind.number)) << kind.name;
    }

    const std::string odd =
        R"({"device_id":"real","id":18446744073709551615,"nmos_id":"\u00e9\n","real":-0.1,"unknown":[{}]})";
    session->send(1000, R"({"id":1,"audio":[{"id":11,"class":"sender"}]})");
    session->send(1003, odd);
    session->send(1003, R"({"id":-1})");
    session->send(1003, "[]");
    session->send(1003, R"({"nmos_id":"whose?"})");
    session->sendFrames({"1003", "not JSON"});
    session->sendFrames({"1003", R"({"command_id":1001,"payload":{"id":1}})"});
    session->sendFrames({"10035", R"({"command_id":10035,"payload":{}})"});
    session->sendFrames({"1003\n", R"({"command_id":1003,"payload":{}})"});
    session->sendFrames({"1003"});
    session->send(1004, R"({"id":5,"sdp":")" +
                            std::string(platform_protocol::kMaxFrameBytes - 60, 'x') + "\"}");
    session->send(1001, R"({"id":1})");
    ASSERT_TRUE(waitForRecorded("1001"));
    ptp->send(1000, R"({"locked":true})");
    ASSERT_TRUE(waitForRecorded("locked"));
    system->send(1002, "{}");
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

TEST_F(RecordingTest, ReplaysTheBuiltInDay) {
    std::ofstream(file) << std::string(1'000'000, '?') << "an older recording";
    startRecording();
    sim.emplace(std::vector<std::string>{"kaikla-sim", "--speed", "20", "--device-id", "mine"});
    ASSERT_TRUE(sim->waitForOutput("ready"));
    startService();
    const auto isEvening = [](const Json::Value& seen) {
        return seen["ptp"]["ports"][1]["portSetting1"] == 2 && seen["sessions"].size() == 1 &&
               seen["eths"].size() == 2;
    };
    const Json::Value evening = waitForDocument(isEvening);
    ASSERT_TRUE(evening.isObject());
    EXPECT_EQ(evening["device_id"], "mine");
    EXPECT_EQ(evening["sessions"][0]["stream"].size(), 3U);
    EXPECT_EQ(evening["ptp"]["locked"], true);
    EXPECT_EQ(evening["eths"][1]["state"], 1);
    EXPECT_THAT(errors(), IsEmpty()) << "nothing of the day has been refused";
    ASSERT_TRUE(sim->waitForOutput("has been played"));
    ASSERT_TRUE(waitForRecorded(R"("portSetting1":2)"));
    stopRecording(SIGTERM);
    ASSERT_EQ(stop(*sim, SIGTERM), 0);
    ASSERT_EQ(stop(SIGTERM), 0);

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
