#include "tools/kaikla-sim/PlayedState.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

class PlayedStateTest : public testing::Test {
protected:
    void play(sim::Service service, unsigned kind, std::uint64_t id, const std::string& message) {
        state.apply({std::chrono::milliseconds(0), sim::findKind(service, kind), id, message});
    }
    void session(unsigned kind, std::uint64_t id, const std::string& message) {
        play(sim::Service::session, kind, id, message);
    }
    std::vector<std::string> kept() const {
        std::vector<std::string> messages;
        for (const auto& entry : state.entries()) {
            messages.push_back(entry.message);
        }
        return messages;
    }

    sim::PlayedState state;
};

TEST_F(PlayedStateTest, HoldsTheLatestWordOnEachSessionInOrderOfChange) {
    session(1000, 1, "new 1");
    session(1003, 1, "status 1");
    session(1000, 2, "new 2");
    session(1003, 2, "status 2");
    session(1002, 1, "configuration 1");
    session(1003, 1, "later status 1");
    EXPECT_THAT(kept(),
                ElementsAre("new 1", "new 2", "status 2", "configuration 1", "later status 1"));

    // Announced anew, a session has neither alarms nor an updated configuration.
    session(1000, 1, "new 1 again");
    EXPECT_THAT(kept(), ElementsAre("new 2", "status 2", "new 1 again"));
}

TEST_F(PlayedStateTest, ForgetsWhatIsGoneAndNothingElse) {
    session(1000, 1, "new session");
    session(1003, 1, "status");
    session(1002, 1, "configuration");
    session(1004, 1, "new advertisement");
    session(1005, 1, "advertisement");
    session(1003, 2, "status of another");
    session(1001, 1, "removed session");
    EXPECT_THAT(kept(), ElementsAre("new advertisement", "advertisement", "status of another"));
    session(1006, 1, "removed advertisement");
    session(1001, 99, "removed, never known");
    EXPECT_THAT(kept(), ElementsAre("status of another"));
}

TEST_F(PlayedStateTest, HoldsOneWordOfTheDeviceForEachKind) {
    const auto system = sim::Service::system;
    play(system, 1000, 0, "parameter");
    play(system, 1001, 0, "ports");
    play(system, 1002, 0, "reboot");
    play(system, 1003, 0, "white list");
    play(system, 1001, 0, "other ports");
    play(sim::Service::ptp, 1001, 0, "configuration");
    play(sim::Service::ptp, 1000, 0, "status");
    play(sim::Service::ptp, 1001, 0, "other configuration");
    EXPECT_THAT(kept(), ElementsAre("parameter", "white list", "other ports", "status",
                                    "other configuration"));
}

} // namespace
