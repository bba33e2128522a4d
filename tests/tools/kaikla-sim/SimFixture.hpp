#pragma once

#include "tests/support/ServiceTest.hpp"
#include "tests/support/TemporaryDirectory.hpp"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// The real kaikla-sim and, where a test wants it, the real service.
class SimFixture : public ServiceTest {
protected:
    /// The name of a new file that holds `text`; it goes with the test.
    std::string fileOf(const std::string& text);

    /// Starts kaikla-sim with a scenario of `lines`; returns when it can be connected to.
    void startSim(const std::string& lines, const std::vector<std::string>& options = {});
    /// Starts kaikla-sim and waits until all of the scenario has been played.
    void playAll(const std::string& lines);

    /// Registers a consumer and lets it look at the document after every message until
    /// `isComplete` says so; null when it never does within `limit`.
    Json::Value waitForDocument(const std::function<bool(const Json::Value&)>& isComplete,
                                std::chrono::milliseconds limit = std::chrono::seconds(10));

    /// Asks a process to stop and returns its exit status; nothing when it takes a second.
    static std::optional<int> stop(ChildProcess& process, int signal);
    using ServiceTest::stop;

    TemporaryDirectory directory;
    std::optional<ChildProcess> sim;

private:
    int files = 0;
};
