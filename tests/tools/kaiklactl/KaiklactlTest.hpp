#pragma once

#include "tests/support/ServiceTest.hpp"

#include <optional>
#include <string>
#include <vector>

/// kaiklactl as its users run it, beside the real service.
class KaiklactlTest : public ServiceTest {
protected:
    /// Runs `kaiklactl`.
    static Outcome ctl(std::vector<std::string> arguments);
    /// Runs a line of bash, in which this build's programs go by their names.
    static Outcome shell(const std::string& line);

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
