#pragma once

#include "platform/records/JsonText.hpp"
#include "tools/kaikla-sim/Kinds.hpp"

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace sim {

/// Why a line of a scenario, or the notification of a device's service, cannot be played. One line
/// for a person.
class NotPlayable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One line of a scenario: when which service sends which notification.
/// {"at_ms": N, "service": "session"|"system"|"ptp", "kind": K, "payload": {...}}
struct ScenarioLine {
    /// A scenario lasts at most a year.
    static constexpr std::chrono::milliseconds kLatest = std::chrono::hours(24 * 365);

    /// Since the start of the scenario.
    std::chrono::milliseconds at{0};
    const Kind* kind = nullptr;
    Json::Value payload;

    /// The id of the thing that the payload is about; 0 for kinds without one.
    std::uint64_t id() const;
    /// The line as text, without a line break.
    std::string encode() const;
};

/// Reads scenario lines, each for itself. One object may read any number of them.
class ScenarioLineDecoder {
public:
    /// Throws NotPlayable when `text` is not a line of a scenario, or its payload is not one that
    /// receivers can decode.
    ScenarioLine decode(std::string_view text);

private:
    JsonDecoder decoder;
};

/// The second frame of a notification. Throws NotPlayable when it is larger than receivers take.
std::string encodeNotification(const Kind& kind, Json::Value payload);

/// Throws NotPlayable when a notification's second frame is larger than receivers take.
void checkSize(const std::string& message);

} // namespace sim
