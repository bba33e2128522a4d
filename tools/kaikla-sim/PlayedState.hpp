#pragma once

#include "tools/kaikla-sim/Scenario.hpp"

#include <cstdint>
#include <list>
#include <map>
#include <utility>
#include <vector>

namespace sim {

/// The state of one service: the notifications that a subscriber needs to catch up.
class PlayedState {
public:
    /// Takes in what `event`, which must outlive the state, does to it.
    void apply(const ScenarioEvent& event);

    /// In the order of their last change. Played in this order, any subset of subjects leaves a
    /// subscriber where the whole history would have left it.
    const std::list<const ScenarioEvent*>& events() const { return kept; }

private:
    using Place = std::list<const ScenarioEvent*>::iterator;

    std::list<const ScenarioEvent*> kept;
    /// The places of the events about one thing, at most one for each kind.
    std::map<std::pair<Subject, std::uint64_t>, std::vector<Place>> places;
};

} // namespace sim
