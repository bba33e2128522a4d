#pragma once

#include "platform/PlatformProtocol.hpp"

#include <chrono>
#include <optional>
#include <string>

namespace kaiklactl {

/// The command line, checked as far as it can be without the service.
struct Options {
    enum class Action { status, add, remove, list, watch, doctor };

    Action action = Action::status;
    std::string server = platform_protocol::kCommandEndpoint;
    std::chrono::milliseconds timeout{};

    /// status, watch: JSON instead of words.
    bool json = false;
    /// status: indented JSON.
    bool pretty = false;
    /// add, remove and doctor: the consumer that the command is about; doctor can do without.
    std::string address;
    /// watch: where to listen and, when that is not what the service can connect to, what to
    /// register instead. Empty for the default.
    std::string bind;
    std::string advertised;
    /// watch: how many messages to wait for, 0 for no end.
    unsigned long count = 0;
};

/// Reads the command line. Without a value there is nothing to do: help or an error has been
/// printed, and the program ends with `exitStatus`.
std::optional<Options> readCommandLine(int argc, char** argv, int& exitStatus);

} // namespace kaiklactl
