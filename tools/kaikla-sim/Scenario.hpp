#pragma once

#include "tools/kaikla-sim/ScenarioLine.hpp"
#include "tools/process/StopSignals.hpp"

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace sim {

/// The scenario that is played when none is named: the text of day.jsonl.
extern const char* const kBuiltInDay;

/// What a session status of a scenario writes as its "device_id" to mean the simulated device.
inline constexpr const char* kDevicePlaceholder = "@device";
/// The device id when neither the command line nor the scenario gives one.
inline constexpr const char* kDefaultDeviceId = "2b1c7f0e-6d54-4c1b-9a37-5e0f8a64d210";

/// One notification, ready to be sent.
struct ScenarioEvent {
    std::chrono::milliseconds at{0};
    const Kind* kind = nullptr;
    std::uint64_t id = 0;
    /// The notification's second frame.
    std::string message;
};

/// A scenario that has been read and found good.
struct Scenario {
    /// What the NMOS node gives as the device's id.
    std::string deviceId;
    /// In the order of the file, whose times never go back.
    std::vector<ScenarioEvent> events;

    std::chrono::milliseconds length() const {
        return events.empty() ? std::chrono::milliseconds(0) : events.back().at;
    }
};

/// Why a scenario is refused: "NAME:LINE: reason", or "NAME: reason" when it cannot be read.
class ScenarioMistake : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads a whole scenario; nothing when a signal arrives first. The device id is `deviceId` if
/// given, otherwise the first one that a session status of the scenario names, so that a recording
/// plays as the device that it was taken from, otherwise kDefaultDeviceId. Throws ScenarioMistake
/// for the first mistake.
std::optional<Scenario> readScenario(std::istream& input, const std::string& name,
                                     const std::optional<std::string>& deviceId,
                                     const StopSignals& stop);

/// As above, from a file, which may be a pipe.
std::optional<Scenario> readScenarioFile(const std::string& fileName,
                                         const std::optional<std::string>& deviceId,
                                         const StopSignals& stop);

} // namespace sim
