#pragma once

#include "tools/kaikla-sim/Scenario.hpp"

#include <cstdint>
#include <list>
#include <string>

namespace sim {

/// The state of one service: the notifications that a subscriber needs to catch up.
class PlayedState {
public:
    struct Entry {
        const Kind* kind = nullptr;
        std::uint64_t id = 0;
        /// The notification's second frame.
        std::string message;
    };

    /// Takes in what `event` does to the state.
    void apply(const ScenarioEvent& event);

    /// In the order of their last change. Played in this order, whatever subset of subjects it is,
    /// they leave a subscriber where the whole history would have left it.
    const std::list<Entry>& entries() const { return kept; }

private:
    std::list<Entry> kept;
};

} // namespace sim
