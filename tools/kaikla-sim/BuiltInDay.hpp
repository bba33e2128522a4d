#pragma once

namespace sim {

/// The scenario that is played when none is named: the text of day.jsonl.
extern const char* const kBuiltInDay;

} // namespace sim
