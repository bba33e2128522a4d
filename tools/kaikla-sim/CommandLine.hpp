#pragma once

#include "tools/kaikla-sim/SimulatedDevice.hpp"

#include <optional>
#include <string>
#include <variant>

namespace sim {

/// What the user wants.
struct CommandLine {
    /// The built-in day when not given.
    std::optional<std::string> scenarioFile;
    std::optional<std::string> deviceId;
    PlayOptions play;
    /// Given: record to this file ("-" is standard output) instead of playing.
    std::optional<std::string> recordFile;
};

/// Reads the command line. Gives the exit status instead when there is nothing to be done: 0 after
/// --help and --version, 2 after a sentence about what is wrong.
std::variant<CommandLine, int> readCommandLine(int argc, const char* const* argv);

} // namespace sim
