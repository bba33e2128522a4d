#pragma once

#include "tests/support/ServiceTest.hpp"

#include <optional>
#include <string>
#include <vector>

/// kaiklactl as its users run it, beside the real service.
class KaiklactlTest : public ServiceTest {
protected:
    struct Outcome {
        /// Nothing when the program did not end.
        std::optional<int> status;
        std::string output;
        std::string error;
    };

    /// Runs a program to its end.
    static Outcome run(std::vector<std::string> arguments);
    /// Runs `kaiklactl`.
    static Outcome ctl(std::vector<std::string> arguments);
    static Outcome finish(ChildProcess& process);

    std::vector<std::string> registered();

    static constexpr const char* kPtpUnlocked = R"({"clock_id":"c","locked":false})";
    static constexpr const char* kPtpLocked = R"({"clock_id":"c","locked":true,"offset_ns":7})";
};

/// Something that accepts connections and takes requests but is not the service: it answers what
/// the test says, or nothing.
class PlayedStranger {
public:
    explicit PlayedStranger(zmq::context_t& context);

    const std::string& endpoint() const { return boundTo; }
    /// The next request's text; nothing when none comes.
    std::optional<std::string> receive();
    void answer(const std::string& body);

private:
    zmq::socket_t socket;
    std::string boundTo;
    std::string client;
};
