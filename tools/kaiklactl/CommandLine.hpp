#pragma once

#include "platform/PlatformProtocol.hpp"

#include <chrono>
#include <string>
#include <variant>

namespace kaiklactl {

/// What the program's exit status tells a script.
enum class ExitStatus {
    success = 0,
    /// The service refused the command, or the doctor found something wrong.
    refused = 1,
    /// The command line cannot be carried out as it stands.
    usage = 2,
    /// The service did not answer, or not in a way that can be read.
    noAnswer = 3,
    /// The output cannot be written.
    output = 4,
};

/// The command line, checked as far as it can be without the service.
struct Options {
    enum class Action { status, add, remove, list, watch, doctor, drain };

    Action action = Action::status;
    std::string server = platform_protocol::kCommandEndpoint;
    std::chrono::milliseconds timeout{};

    /// status, watch: JSON instead of words.
    bool json = false;
    /// status: indented JSON.
    bool pretty = false;
    /// list: try to reach the consumers.
    bool check = true;
    /// add, remove, drain and doctor: the consumer that the command is about; doctor can do
    /// without.
    std::string address;
    /// watch: where to listen and, when the service reaches it under another address, what to
    /// register. Empty for the default.
    std::string bind;
    std::string advertised;
    /// watch: how many messages to wait for, 0 for no end.
    unsigned long count = 0;
};

/// Reads the command line. Gives the exit status instead when there is nothing to be done: success
/// after --help and --version, usage after a sentence about what is wrong.
std::variant<Options, ExitStatus> readCommandLine(int argc, const char* const* argv);

} // namespace kaiklactl
