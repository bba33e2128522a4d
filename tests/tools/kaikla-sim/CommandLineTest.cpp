#include "tests/tools/kaikla-sim/SimFixture.hpp"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

Outcome runSim(std::vector<std::string> options) {
    options.insert(options.begin(), "kaikla-sim");
    return run(std::move(options));
}

class CommandLineTest : public SimFixture {};

TEST_F(CommandLineTest, AnswersHelpAndVersion) {
    const Outcome help = runSim({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, HasSubstr("--scenario"));
    const Outcome version = runSim({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_THAT(version.output, StartsWith("kaikla-sim "));
}

TEST_F(CommandLineTest, RefusesWhatItDoesNotUnderstand) {
    const std::vector<std::vector<std::string>> wrong = {
        {"--unknown"},
        {"positional"},
        {"--speed", "0"},
        {"--speed", "-1"},
        {"--speed", "nan"},
        {"--speed", "fast"},
        {"--device-id", ""},
        {"--scenario"},
        {"record"},
        {"record", "a", "b"},
        {"--loop", "--exit-at-end"},
        {"--speed", "2", "record", directory.file("recording")},
    };
    for (const auto& options : wrong) {
        const Outcome outcome = runSim(options);
        EXPECT_EQ(outcome.status, 2) << options.front();
        EXPECT_THAT(outcome.error, Not(testing::IsEmpty())) << options.front();
    }
}

TEST_F(CommandLineTest, PlaysNothingOfAScenarioWithAMistake) {
    const std::string file = fileOf(R"({"at_ms": 0, "service": "ptp", "kind": 1000, "payload": {}}
{"at_ms": 0, "service": "ptp", "kind": 1, "payload": {}})");
    const Outcome outcome = runSim({"--scenario", file});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.error, "kaikla-sim: " + file + ":2: \"ptp\" has no kind 1\n");

    EXPECT_EQ(runSim({"--scenario", directory.file("absent")}).status, 1);
    // It would play without ever resting.
    const std::string moment = fileOf(R"({"at_ms":0,"service":"ptp","kind":1000,"payload":{}})");
    EXPECT_EQ(runSim({"--scenario", moment, "--loop"}).status, 1);
    EXPECT_EQ(runSim({"record", "/absent/recording"}).status, 1);
    EXPECT_EQ(runSim({"record", "/dev/full"}).status, 1);
}

} // namespace
