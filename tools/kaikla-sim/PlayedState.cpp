#include "tools/kaikla-sim/PlayedState.hpp"

namespace sim {

namespace {

/// Whether `event` makes an earlier event of `kind` about the same thing void.
bool makesVoid(const ScenarioEvent& event, const Kind& kind) {
    const Effect effect = event.kind->effect;
    return effect == Effect::appears || effect == Effect::disappears || event.kind == &kind;
}

} // namespace

void PlayedState::apply(const ScenarioEvent& event) {
    if (event.kind->effect == Effect::passes) {
        return;
    }
    const auto said = places.try_emplace({event.kind->subject, event.id}).first;
    std::vector<Place>& ofThing = said->second;
    for (auto place = ofThing.begin(); place != ofThing.end();) {
        if (makesVoid(event, *(**place)->kind)) {
            kept.erase(*place);
            place = ofThing.erase(place);
        } else {
            ++place;
        }
    }
    if (event.kind->effect == Effect::disappears) {
        places.erase(said);
    } else {
        ofThing.push_back(kept.insert(kept.end(), &event));
    }
}

} // namespace sim
