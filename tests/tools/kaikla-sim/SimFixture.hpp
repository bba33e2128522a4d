#pragma once

#include "tests/support/ChildProcess.hpp"
#include "tests/support/CommandClient.hpp"
#include "tests/support/Consumer.hpp"

#include <gtest/gtest.h>
#include <json/value.h>
#include <zmq.hpp>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// The real kaikla-sim and, where a test wants it, the real service.
class SimFixture : public testing::Test {
public:
    SimFixture() = default;
    ~SimFixture() override;
    SimFixture(const SimFixture&) = delete;
    SimFixture& operator=(const SimFixture&) = delete;
    SimFixture(SimFixture&&) = delete;
    SimFixture& operator=(SimFixture&&) = delete;

protected:
    /// The name of a new file that holds `text`; it goes with the test.
    std::string fileOf(const std::string& text);
    std::string freshFileName();
    static std::string contentOf(const std::string& fileName);

    /// Starts kaikla-sim with a scenario of `lines`; returns when it can be connected to.
    void startSim(const std::string& lines, const std::vector<std::string>& options = {});
    /// Starts kaikla-sim and waits until all of the scenario has been played.
    void playAll(const std::string& lines);
    void startService();

    /// Registers a consumer and lets it look at the document after every message until
    /// `isComplete` says so; null when it never does within `limit`.
    Json::Value waitForDocument(const std::function<bool(const Json::Value&)>& isComplete,
                                std::chrono::milliseconds limit = std::chrono::seconds(10));
    Json::Value document();

    /// Asks a process to stop and returns its exit status; nothing when it takes a second.
    static std::optional<int> stop(ChildProcess& process, int signal);

    zmq::context_t context;
    std::optional<ChildProcess> sim;
    std::optional<ChildProcess> service;
    CommandClient client{context};

private:
    std::vector<std::string> files;
};
