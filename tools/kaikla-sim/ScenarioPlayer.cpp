#include "tools/kaikla-sim/ScenarioPlayer.hpp"

#include <algorithm>
#include <cmath>

namespace sim {

ScenarioPlayer::ScenarioPlayer(const Scenario& scenarioToPlay, double speedFactor, bool inLoop,
                               Clock::time_point startTime)
    : scenario(scenarioToPlay), speed(speedFactor), loop(inLoop), start(startTime) {}

double ScenarioPlayer::scenarioTime(Clock::time_point now) const {
    return std::chrono::duration<double, std::milli>(now - start).count() * speed;
}

bool ScenarioPlayer::advance(Clock::time_point now, const Play& play) {
    if (ended) {
        return false;
    }
    const double reached = scenarioTime(now);
    const std::size_t end = std::min(scenario.events.size(), next + kMostAtOnce);
    while (next < end && static_cast<double>(scenario.events[next].at.count()) <= reached) {
        play(scenario.events[next++]);
    }
    if (next < scenario.events.size()) {
        return false;
    }
    if (loop) {
        next = 0;
        start = now;
    } else {
        ended = true;
    }
    return true;
}

std::chrono::milliseconds ScenarioPlayer::timeToNext(Clock::time_point now) const {
    if (ended) {
        return kNothingDue;
    }
    if (next == scenario.events.size()) {
        return std::chrono::milliseconds(0);
    }
    constexpr std::chrono::milliseconds kLongest = std::chrono::hours(1);
    const double wanted =
        (static_cast<double>(scenario.events[next].at.count()) - scenarioTime(now)) / speed;
    return std::chrono::milliseconds(static_cast<std::int64_t>(
        std::clamp(std::ceil(wanted), 0.0, static_cast<double>(kLongest.count()))));
}

} // namespace sim
