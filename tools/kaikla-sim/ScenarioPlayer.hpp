#pragma once

#include "tools/kaikla-sim/Scenario.hpp"

#include <chrono>
#include <functional>

namespace sim {

/// Says which events of a scenario are due at a time. The caller owns the clock, so nothing here
/// waits.
class ScenarioPlayer {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t kMostAtOnce = 1000;
    using Play = std::function<void(const ScenarioEvent&)>;

    /// `scenario` outlives the player. `speed` is above 0; 2 plays in half the time. With `loop`
    /// the scenario, whose length is above 0, begins again when it has ended.
    ScenarioPlayer(const Scenario& scenario, double speed, bool loop, Clock::time_point start);

    /// Calls `play` for every event that is due at `now`, in order, up to the end of the scenario
    /// and at most kMostAtOnce: between two calls the caller can look after other things. True when
    /// the end has been reached with this call.
    bool advance(Clock::time_point now, const Play& play);

    /// How long after `now` the next event is due: 0 when it is already, rounded up, and
    /// kNothingDue when nothing is left to be played. Never longer than an hour.
    std::chrono::milliseconds timeToNext(Clock::time_point now) const;
    static constexpr std::chrono::milliseconds kNothingDue{-1};

private:
    /// A time in the scenario, in its milliseconds.
    double scenarioTime(Clock::time_point now) const;

    const Scenario& scenario;
    double speed;
    bool loop;
    Clock::time_point start;
    std::size_t next = 0;
    bool ended = false;
};

} // namespace sim
