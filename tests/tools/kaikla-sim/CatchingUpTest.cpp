#include "tests/tools/kaikla-sim/SimFixture.hpp"

#include <gmock/gmock.h>

#include <csignal>

namespace {

using testing::ElementsAre;

/// A device with everything that a document shows, its last changes in an order of their own: the
/// second session changed last but one, the third was announced last and has no status.
constexpr const char* kDevice = R"(
{"at_ms": 0, "service": "system", "kind": 1001, "payload": {"eths": [{"name": "p", "state": 1}]}}
{"at_ms": 0, "service": "ptp", "kind": 1001, "payload": {"cfgSetting1": 9}}
{"at_ms": 0, "service": "ptp", "kind": 1000, "payload": {"clock_id": "c", "cfgSetting1": 4, "ports": [{"portNumber": 1}]}}
{"at_ms": 0, "service": "ptp", "kind": 1001, "payload": {"cfgSetting1": 5, "ports": [{"portNumber": 1, "portSetting1": 6}]}}
{"at_ms": 0, "service": "session", "kind": 1000, "payload": {"id": 2, "nmos_id": "two", "audio": [{"id": 21}]}}
{"at_ms": 0, "service": "session", "kind": 1000, "payload": {"id": 1, "nmos_id": "one", "video": [{"id": 11}]}}
{"at_ms": 0, "service": "session", "kind": 1003, "payload": {"id": 1, "nmos_id": "one", "device_id": "@device", "stream": [{"id": 11}]}}
{"at_ms": 0, "service": "session", "kind": 1000, "payload": {"id": 4}}
{"at_ms": 0, "service": "session", "kind": 1003, "payload": {"id": 2, "nmos_id": "two", "device_id": "@device", "stream": [{"id": 21, "alarms": [{"description": "late"}]}]}}
{"at_ms": 0, "service": "session", "kind": 1001, "payload": {"id": 4}}
{"at_ms": 0, "service": "session", "kind": 1000, "payload": {"id": 3, "nmos_id": "three"}}
)";

class CatchingUpTest : public SimFixture {
protected:
    static bool isWhole(const Json::Value& document) {
        const Json::Value& sessions = document["sessions"];
        return sessions.size() == 3 && sessions[1]["stream"][0].isMember("alarms") &&
               document["eths"].size() == 1 && document["ptp"]["cfgSetting1"] == 5;
    }

    static void expectWhole(const Json::Value& document) {
        ASSERT_TRUE(document.isObject()) << "no whole document in time";
        std::vector<std::string> sessions;
        for (const Json::Value& session : document["sessions"]) {
            EXPECT_EQ(session["device_id"], "the-device");
            sessions.push_back(session["nmos_id"].asString());
        }
        // As if it had been there from the beginning.
        EXPECT_THAT(sessions, ElementsAre("one", "two", "three"));
        EXPECT_EQ(document["sessions"][1]["stream"][0]["alarms"][0]["description"], "late");
        EXPECT_EQ(document["device_id"], "the-device");
        EXPECT_EQ(document["ptp"]["ports"][0]["portSetting1"], 6);
    }

    /// Starts the service; the device must be complete within a second of its start.
    Json::Value documentOfFreshService() {
        using Clock = std::chrono::steady_clock;
        constexpr std::chrono::milliseconds kPromise{1000};
        const auto start = Clock::now();
        startService();
        Json::Value whole = waitForDocument(isWhole, kPromise);
        EXPECT_LT(Clock::now() - start, kPromise);
        return whole;
    }

    const std::vector<std::string> asTheDevice{"--device-id", "the-device"};
};

TEST_F(CatchingUpTest, GivesALateAndARestartedServiceTheWholeDeviceWithinASecond) {
    startSim(kDevice, asTheDevice);
    ASSERT_TRUE(sim->waitForOutput("has been played"));
    expectWhole(documentOfFreshService());
    ASSERT_EQ(stop(SIGTERM), 0);
    expectWhole(documentOfFreshService());
    service->signal(SIGKILL);
    ASSERT_TRUE(service->waitForExit());
    expectWhole(documentOfFreshService());
}

TEST_F(CatchingUpTest, GivesAServiceThatWasThereFirstTheWholeDevice) {
    startService();
    startSim(kDevice, asTheDevice);
    expectWhole(waitForDocument(isWhole));

    // And again when the device comes back as another.
    ASSERT_EQ(stop(*sim, SIGTERM), 0);
    startSim(
        R"({"at_ms": 0, "service": "system", "kind": 1001, "payload": {"eths": [{"name": "p"}, {"name": "q"}]}})");
    const Json::Value restarted =
        waitForDocument([](const Json::Value& seen) { return seen["eths"].size() == 2; });
    EXPECT_EQ(restarted["sessions"].size(), 3U);
}

} // namespace
