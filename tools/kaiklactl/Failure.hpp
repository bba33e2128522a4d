#pragma once

#include <stdexcept>
#include <string>

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
    /// What there was to say could not be written.
    output = 4,
};

/// Ends the program: one sentence for standard error and the exit status that goes with it. The
/// sentence may hold text from the network; whoever prints it makes it printable.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus exitStatus, const std::string& sentence)
        : std::runtime_error(sentence), status(exitStatus) {}

    ExitStatus status;
};

/// A service that has not answered.
class NoAnswer : public Failure {
public:
    explicit NoAnswer(const std::string& sentence) : Failure(ExitStatus::noAnswer, sentence) {}
};

/// Thrown when a signal ends a wait.
struct Interrupted {
    int signal;
};

} // namespace kaiklactl
