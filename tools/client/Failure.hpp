#pragma once

#include <stdexcept>
#include <string>

namespace client {

/// Why something could not be done, in one sentence for a person. The sentence may hold text from
/// the network; make it printable before it reaches a terminal.
class Failure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// An endpoint that cannot be connected to or bound.
class BadEndpoint : public Failure {
    using Failure::Failure;
};

/// The service did not answer, or not in a way that can be read.
class NoAnswer : public Failure {
public:
    explicit NoAnswer(const std::string& sentence, bool isWithService = false)
        : Failure(sentence), withService(isWithService) {}

    /// The request reached the service, which may still carry it out.
    bool withService;
};

/// The service answered with a negative code; the sentence is its own.
class Refused : public Failure {
    using Failure::Failure;
};

} // namespace client
