#pragma once

#include "tools/kaikla-sim/SimulatedDevice.hpp"

#include <optional>
#include <string>
#include <variant>

namespace sim {

/// What the program's exit status tells a script.
enum class ExitStatus {
    /// Also after a signal.
    success = 0,
    /// The scenario is refused, a port is taken, or a file cannot be read or written.
    failed = 1,
    /// The command line cannot be carried out as it stands.
    usage = 2,
};

/// What the user wants.
struct Options {
    /// The built-in day when not given.
    std::optional<std::string> scenarioFile;
    std::optional<std::string> deviceId;
    PlayOptions play;
    /// Given: record to this file ("-" is standard output) instead of playing.
    std::optional<std::string> recordFile;
};

/// Reads the command line. Gives the exit status instead when there is nothing to be done: success
/// after --help and --version, usage after a sentence that names the mistake.
std::variant<Options, ExitStatus> readCommandLine(int argc, const char* const* argv);

} // namespace sim
