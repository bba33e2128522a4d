#include "tools/kaikla-sim/PlayedState.hpp"

namespace sim {

namespace {

bool isObsoletedBy(const PlayedState::Entry& entry, const ScenarioEvent& event) {
    switch (event.kind->effect) {
    case Effect::appears:
    case Effect::disappears:
        return entry.kind->subject == event.kind->subject && entry.id == event.id;
    case Effect::updates:
    case Effect::replaces:
        return entry.kind == event.kind && entry.id == event.id;
    case Effect::passes:
        break;
    }
    return false;
}

} // namespace

void PlayedState::apply(const ScenarioEvent& event) {
    kept.remove_if([&event](const Entry& entry) { return isObsoletedBy(entry, event); });
    if (event.kind->effect != Effect::disappears && event.kind->effect != Effect::passes) {
        kept.push_back({event.kind, event.id, event.message});
    }
}

} // namespace sim
