#include "tools/kaikla-sim/ScenarioPlayer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class ScenarioPlayerTest : public testing::Test {
protected:
    ScenarioPlayerTest() {
        for (const int at : {0, 100, 100, 250}) {
            scenario.events.push_back({milliseconds(at), nullptr, 0, std::to_string(at)});
        }
    }

    sim::ScenarioPlayer player(double speed, bool loop) { return {scenario, speed, loop, start}; }

    /// What is played at `now`, followed by "end" if the end is reached.
    static std::vector<std::string> advance(sim::ScenarioPlayer& player,
                                            sim::ScenarioPlayer::Clock::time_point now) {
        std::vector<std::string> played;
        if (player.advance(
                now, [&](const sim::ScenarioEvent& event) { played.push_back(event.message); })) {
            played.emplace_back("end");
        }
        return played;
    }

    sim::Scenario scenario;
    sim::ScenarioPlayer::Clock::time_point start{std::chrono::hours(1000)};
};

TEST_F(ScenarioPlayerTest, PlaysWhatIsDueAndSaysWhatComes) {
    auto once = player(1, false);
    EXPECT_EQ(once.timeToNext(start), milliseconds(0));
    EXPECT_THAT(advance(once, start), ElementsAre("0"));
    EXPECT_EQ(once.timeToNext(start + milliseconds(30)), milliseconds(70));
    EXPECT_THAT(advance(once, start + milliseconds(99)), IsEmpty());
    // Rounded up, so that a wait does not end just before the time and turns into a busy one.
    EXPECT_EQ(once.timeToNext(start + milliseconds(99) + std::chrono::microseconds(1)),
              milliseconds(1));
    EXPECT_THAT(advance(once, start + milliseconds(120)), ElementsAre("100", "100"));
    EXPECT_THAT(advance(once, start + milliseconds(9000)), ElementsAre("250", "end"));
    EXPECT_THAT(advance(once, start + milliseconds(9001)), IsEmpty());
    EXPECT_EQ(once.timeToNext(start + milliseconds(9001)), sim::ScenarioPlayer::kNothingDue);
}

TEST_F(ScenarioPlayerTest, KeepsTheSpeedHoweverFarItIs) {
    auto fast = player(4, false);
    EXPECT_THAT(advance(fast, start + milliseconds(25)), ElementsAre("0", "100", "100"));
    EXPECT_EQ(fast.timeToNext(start + milliseconds(25)), milliseconds(38));

    auto still = player(1e-300, false);
    EXPECT_THAT(advance(still, start + milliseconds(5)), ElementsAre("0"));
    EXPECT_EQ(still.timeToNext(start + milliseconds(5)), std::chrono::hours(1));

    auto immediate = player(1e300, false);
    EXPECT_THAT(advance(immediate, start + milliseconds(1)),
                ElementsAre("0", "100", "100", "250", "end"));
}

TEST_F(ScenarioPlayerTest, BeginsAgainOneRoundAtATime) {
    auto looped = player(1, true);
    EXPECT_THAT(advance(looped, start + milliseconds(1000)),
                ElementsAre("0", "100", "100", "250", "end"));
    EXPECT_EQ(looped.timeToNext(start + milliseconds(1000)), milliseconds(0));
    EXPECT_THAT(advance(looped, start + milliseconds(1000)), ElementsAre("0"));
    EXPECT_EQ(looped.timeToNext(start + milliseconds(1000)), milliseconds(100));
}

TEST_F(ScenarioPlayerTest, ReachesTheEndOfNothingAtOnce) {
    scenario.events.clear();
    auto empty = player(1, false);
    EXPECT_THAT(advance(empty, start), ElementsAre("end"));
    EXPECT_EQ(empty.timeToNext(start), sim::ScenarioPlayer::kNothingDue);
}

} // namespace
