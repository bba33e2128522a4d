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
                 const std::string& atMs = "600") {
    return R"({"at_ms": )" + atMs + R"(, "service": ")" + service + R"(", "kind": )" +
           std::to_string(kind) + R"(, "payload": )" + payload + "}";
}

Json::Value messageOf(const sim::ScenarioEvent& event) {
    Json::Value message;
    EXPECT_EQ(JsonDecoder().decodeObject(event.message, message), "");
    return message;
}

/// A payload with a text of so many times `character`.
std::string textOf(const std::string& character, std::size_t times) {
    std::string text;
    while (times-- > 0) {
        text += character;
    }
    return R"({"text": ")" + text + "\"}";
}

TEST(Scenario, MistakeIsRefusedWithFileLineAndReason) {
    struct Row {
        std::string line;
        const char* reason;
    };
    const std::string good = line("session", 1001, R"({"id": 1})", "500");
    EXPECT_EQ(mistakeIn(good + "\n"), "accepted");
    for (const Row& row : {
             Row{"hello", "not JSON"},
             Row{"[1]", "not a JSON object"},
             Row{"{} {}", "not JSON"},
             Row{R"({"at_ms": 600, "at_ms": 600})", "not JSON"},
             Row{R"({"at_ms": 600, "service": "ptp", "kind": 1000})", "\"payload\" is missing"},
             Row{R"({"at_ms": 6, "service": "ptp", "kind": 1000, "payload": {}, "not\nnow": 1})",
                 R"(no such key as "not\nnow")"},
             Row{line("ptp", 1000, "{}", "-1"), "\"at_ms\" must be"},
             Row{line("ptp", 1000, "{}", "600.5"), "\"at_ms\" must be"},
             Row{line("ptp", 1000, "{}", "\"600\""), "\"at_ms\" must be"},
             Row{line("ptp", 1000, "{}", "31536000001"), "from 0 to 31536000000"},
             Row{line("ptp", 1000, "{}", "499"), "goes back from 500 to 499"},
             Row{line("nmos", 1000, "{}"), "\"service\" must be"},
             Row{R"({"at_ms": 600, "service": 1, "kind": 1000, "payload": {}})",
                 "\"service\" must be"},
             Row{line("ptp", 1003, "{}"), "\"ptp\" has no kind 1003"},
             Row{R"({"at_ms": 600, "service": "ptp", "kind": "1000", "payload": {}})",
                 "\"kind\" must be"},
             Row{line("ptp", 1000, "[]"), "\"payload\" must be an object"},
             Row{line("system", 1002, "null"), "\"payload\" must be"},
             Row{line("session", 1003, R"({"session": 7})"),
                 R"(kind 1003 (session status) has no "id")"},
             // Each kind is read with the record that receivers read it with.
             Row{line("session", 1000, R"({"id": 1, "audio": [{"id": "x"}]})"),
                 "kind 1000 (new session) cannot be decoded"},
             Row{line("session", 1001, R"({"id": -1})"),
                 "kind 1001 (removed session) cannot be decoded"},
             Row{line("session", 1003, R"({"id": 1, "alarms": [{"type": "high"}]})"),
                 "kind 1003 (session status) cannot be decoded"},
             Row{line("session", 1005, R"({"id": 1, "sdp": []})"),
                 "kind 1005 (advertisement update) cannot be decoded"},
             Row{line("system", 1001, R"({"eths": [{"name": {}}]})"),
                 "kind 1001 (dynamic-information update) cannot be decoded"},
             Row{line("ptp", 1000, R"({"offset_ns": "far"})"),
                 "kind 1000 (PTP status change) cannot be decoded"},
             Row{line("ptp", 1001, R"({"ports": [{"portNumber": []}]})"),
                 "kind 1001 (PTP configuration change) cannot be decoded"},
             Row{line("system", 1000,
                      R"({"deep": )" + std::string(100, '[') + std::string(100, ']') + "}"),
                 "nested deeper than"},
             Row{line("system", 1000, textOf("x", platform_protocol::kMaxFrameBytes)),
                 "longer than 1048576 bytes"},
             // It fits a line but not a notification, in which each of its characters is escaped.
             Row{line("system", 1000, textOf("\xc3\xa9", platform_protocol::kMaxFrameBytes / 4)),
                 "the notification would be"},
         }) {
        const std::string told = mistakeIn("# a comment\n\n" + good + "\n" + row.line + "\n");
        EXPECT_THAT(told, StartsWith("day:4: "));
        EXPECT_THAT(told, HasSubstr(row.reason));
        EXPECT_EQ(told.find('\n'), std::string::npos);
    }
}

TEST(Scenario, KeepsEveryNotificationOfEveryKindInOrder) {
    std::string text = "# all kinds\r\n\r\n  # and layouts of empty lines\n" +
                       line("session", 1000, R"({"id": 7, "unknown": [1]})", "0") + "\r\n" +
                       line("session", 1001, R"({"id": 18446744073709551615})", "0") + "\n";
    for (const unsigned kind : {1002U, 1003U, 1004U, 1005U, 1006U}) {
        text += line("session", kind, R"({"id": 1})", "10") + "\n";
    }
    for (const unsigned kind : {1000U, 1001U, 1002U, 1003U}) {
        text += line("system", kind, "{}", "10") + "\n";
    }
    text += line("ptp", 1000, "{}") + "\n" + line("ptp", 1001, "{}", "31536000000");
    const sim::Scenario scenario = read(text);
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

TEST(Scenario, FileThatCannotBeReadIsNotTakenForAnEmptyScenario) {
    EXPECT_THROW(sim::readScenarioFile("/", {}), sim::ScenarioMistake);
    EXPECT_THROW(sim::readScenarioFile(testing::TempDir() + "absent.jsonl", {}),
                 sim::ScenarioMistake);
    EXPECT_TRUE(read("").events.empty());
}

} // namespace
