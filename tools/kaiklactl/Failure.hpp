#pragma once

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

} // namespace kaiklactl
