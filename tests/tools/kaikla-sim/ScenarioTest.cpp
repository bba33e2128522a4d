#include "tools/kaikla-sim/Scenario.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/records/JsonText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using testing::HasSubstr;
using testing::StartsWith;

sim::Scenario read(const std::string& text, const std::optional<std::string>& deviceId = {}) {
    std::istringstream input(text);
    return sim::readScenario(input, "day", deviceId);
}

std::string mistakeIn(const std::string& text) {
    try {
        read(text);
    } catch (const sim::ScenarioMistake& mistake) {
        return mistake.what();
    }
    return "accepted";
}

std::string line(const std::string& service, unsigned kind, const std::string& payload,
                 const std::string& atMs = "0") {
    return R"({"at_ms": )" + atMs + R"(, "service": ")" + service + R"(", "kind": )" +
           std::to_string(kind) + R"(, "payload": )" + payload + "}";
}

Json::Value messageOf(const sim::ScenarioEvent& event) {
    Json::Value message;
    EXPECT_EQ(JsonDecoder().decodeObject(event.message, message), "");
    return message;
}

struct Mistake {
    const char* name;
    std::string line;
    const char* reason;
};

class ScenarioMistakes : public testing::TestWithParam<Mistake> {};

TEST_P(ScenarioMistakes, AreRefusedWithFileLineAndReason) {
    const std::string good = line("session", 1001, R"({"id": 1})", "500");
    EXPECT_EQ(mistakeIn(good + "\n"), "accepted");
    const std::string told = mistakeIn("# a comment\n\n" + good + "\n" + GetParam().line + "\n");
    EXPECT_THAT(told, StartsWith("day:4: "));
    EXPECT_THAT(told, HasSubstr(GetParam().reason));
    EXPECT_EQ(told.find('\n'), std::string::npos);
}

std::string nested(std::size_t levels) {
    return R"({"deep": )" + std::string(levels, '[') + std::string(levels, ']') + "}";
}

/// A text that fits a line but not a notification, in which each of its characters is escaped.
std::string growing() {
    std::string text;
    for (std::size_t i = 0; i < platform_protocol::kMaxFrameBytes / 4; ++i) {
        text += "\xc3\xa9";
    }
    return R"({"text": ")" + text + "\"}";
}

INSTANTIATE_TEST_SUITE_P(
    Each, ScenarioMistakes,
    testing::Values(
        Mistake{"NotJson", "hello", "not JSON"}, Mistake{"NotAnObject", "[1]", "not a JSON object"},
        Mistake{"TwoObjects", "{} {}", "not JSON"},
        Mistake{"KeyTwice", R"({"at_ms": 600, "at_ms": 600})", "not JSON"},
        Mistake{"KeyMissing", R"({"at_ms": 600, "service": "ptp", "kind": 1000})",
                "\"payload\" is missing"},
        Mistake{"KeyUnknown",
                R"({"at_ms": 6, "service": "ptp", "kind": 1000, "payload": {}, "not\nnow": 1})",
                R"(no such key as "not\nnow")"},
        Mistake{"TimeNegative", line("ptp", 1000, "{}", "-1"), "\"at_ms\" must be"},
        Mistake{"TimeFraction", line("ptp", 1000, "{}", "600.5"), "\"at_ms\" must be"},
        Mistake{"TimeText", line("ptp", 1000, "{}", "\"600\""), "\"at_ms\" must be"},
        Mistake{"TimeBeyondAnyScenario", line("ptp", 1000, "{}", "31536000001"),
                "from 0 to 31536000000"},
        Mistake{"TimeGoesBack", line("ptp", 1000, "{}", "499"), "goes back from 500 to 499"},
        Mistake{"ServiceUnknown", line("nmos", 1000, "{}", "600"), "\"service\" must be"},
        Mistake{"ServiceNumber", R"({"at_ms": 600, "service": 1, "kind": 1000, "payload": {}})",
                "\"service\" must be"},
        Mistake{"KindOfAnotherService", line("ptp", 1003, "{}", "600"), "\"ptp\" has no kind 1003"},
        Mistake{"KindText", R"({"at_ms": 600, "service": "ptp", "kind": "1000", "payload": {}})",
                "\"kind\" must be"},
        Mistake{"PayloadArray", line("ptp", 1000, "[]", "600"), "\"payload\" must be an object"},
        Mistake{"PayloadNull", line("system", 1002, "null", "600"), "\"payload\" must be"},
        Mistake{"IdMissing", line("session", 1003, R"({"session": 7})", "600"),
                R"(kind 1003 (session status) has no "id")"},
        Mistake{"IdNegative", line("session", 1001, R"({"id": -1})", "600"),
                "kind 1001 (removed session) cannot be decoded"},
        Mistake{"StreamsWrong",
                line("session", 1000, R"({"id": 1, "audio": [{"id": "x"}]})", "600"),
                "kind 1000 (new session) cannot be decoded"},
        Mistake{"AlarmWrong",
                line("session", 1003, R"({"id": 1, "alarms": [{"type": "high"}]})", "600"),
                "kind 1003 (session status) cannot be decoded"},
        Mistake{"PtpStatusWrong", line("ptp", 1000, R"({"offset_ns": "far"})", "600"),
                "kind 1000 (PTP status change) cannot be decoded"},
        Mistake{"PtpConfigurationWrong",
                line("ptp", 1001, R"({"ports": [{"portNumber": []}]})", "600"),
                "kind 1001 (PTP configuration change) cannot be decoded"},
        Mistake{"PortsWrong", line("system", 1001, R"({"eths": [{"name": {}}]})", "600"),
                "kind 1001 (dynamic-information update) cannot be decoded"},
        Mistake{"AdvertisementWrong", line("session", 1005, R"({"id": 1, "sdp": []})", "600"),
                "kind 1005 (advertisement update) cannot be decoded"},
        Mistake{"TooDeep", line("system", 1000, nested(100), "600"), "nested deeper than"},
        Mistake{"LineTooLong",
                line("system", 1000,
                     R"({"text": ")" + std::string(platform_protocol::kMaxFrameBytes, 'x') + "\"}",
                     "600"),
                "longer than 1048576 bytes"},
        Mistake{"NotificationTooLong", line("system", 1000, growing(), "600"),
                "the notification would be"}),
    [](const auto& mistake) { return std::string(mistake.param.name); });

TEST(Scenario, KeepsEveryNotificationOfEveryKindInOrder) {
    const sim::Scenario scenario =
        read("# all kinds\r\n\r\n"
             "  # and layouts of empty lines\n" +
             line("session", 1000, R"({"id": 7, "unknown": [1]})") + "\r\n" +
             line("session", 1001, R"({"id": 18446744073709551615})") + "\n" +
             line("session", 1002, R"({"id": 7})") + "\n" + line("session", 1003, R"({"id": 7})") +
             "\n" + line("session", 1004, R"({"id": 1})", "10") + "\n" +
             line("session", 1005, R"({"id": 1})", "10") + "\n" +
             line("session", 1006, R"({"id": 1})", "10") + "\n" +
             line("system", 1000, R"({"any": "thing"})", "20") + "\n" +
             line("system", 1001, "{}", "20") + "\n" + line("system", 1002, "{}", "20") + "\n" +
             line("system", 1003, "{}", "20") + "\n" + line("ptp", 1000, "{}", "30") + "\n" +
             line("ptp", 1001, "{}", "31536000000"));
    ASSERT_EQ(scenario.events.size(), sim::allKinds().size());
    EXPECT_EQ(scenario.length(), sim::ScenarioLine::kLatest);
    for (std::size_t i = 0; i < scenario.events.size(); ++i) {
        EXPECT_EQ(scenario.events[i].kind, &sim::allKinds()[i]);
        const Json::Value message = messageOf(scenario.events[i]);
        EXPECT_EQ(message["command_id"].asUInt(), sim::allKinds()[i].number);
        EXPECT_EQ(message["command_name"].asString(), sim::allKinds()[i].name);
    }
    EXPECT_EQ(scenario.events[1].id, UINT64_MAX);
    // What receivers ignore is sent as it stands, and nothing is added.
    EXPECT_EQ(toCompactJson(messageOf(scenario.events[0])["payload"]), R"({"id":7,"unknown":[1]})");
}

TEST(Scenario, NamesTheDeviceEverywhereAlike) {
    const std::string placeholder = line("session", 1003, R"({"id": 1, "device_id": "@device"})");
    const std::string recorded = line("session", 1003, R"({"id": 1, "device_id": "rec"})");
    const std::string without = line("session", 1003, R"({"id": 1})");
    const auto deviceOf = [](const sim::Scenario& scenario, std::size_t event) {
        return messageOf(scenario.events.at(event))["payload"].get("device_id", "none").asString();
    };

    sim::Scenario scenario = read(placeholder + "\n" + without);
    EXPECT_EQ(scenario.deviceId, sim::kDefaultDeviceId);
    EXPECT_EQ(deviceOf(scenario, 0), sim::kDefaultDeviceId);
    EXPECT_EQ(deviceOf(scenario, 1), "none");

    // A recording is played as the device that it was taken from.
    scenario = read(placeholder + "\n" + recorded);
    EXPECT_EQ(scenario.deviceId, "rec");
    EXPECT_EQ(deviceOf(scenario, 0), "rec");

    scenario = read(placeholder + "\n" + recorded, "given");
    EXPECT_EQ(scenario.deviceId, "given");
    EXPECT_EQ(deviceOf(scenario, 0), "given");
    EXPECT_EQ(deviceOf(scenario, 1), "rec");

    // Only a session's status names the device.
    scenario = read(line("system", 1000, R"({"device_id": "@device"})"));
    EXPECT_EQ(deviceOf(scenario, 0), "@device");
}

TEST(Scenario, ThatCannotBeReadIsNotTakenForAnEmptyOne) {
    EXPECT_THROW(sim::readScenarioFile("/", {}), sim::ScenarioMistake);
    EXPECT_THROW(sim::readScenarioFile(testing::TempDir() + "absent.jsonl", {}),
                 sim::ScenarioMistake);
    EXPECT_TRUE(read("").events.empty());
}

} // namespace
