#pragma once

#include "tests/support/ChildProcess.hpp"
#include "tests/support/CommandClient.hpp"
#include "tests/support/Consumer.hpp"
#include "tests/support/LogLines.hpp"
#include "tests/support/PlayedServices.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <zmq.hpp>

#include <optional>
#include <string>
#include <vector>

/// The real service amid services played by the test. A test leaves out or resets those that it
/// wants absent; an expectation that something did not happen follows one that what came after it
/// did.
class ServiceTest : public testing::Test {
protected:
    /// All four services and, subscribed to them, the service.
    void startAll(std::vector<std::string> options = {"-l", "7"});
    void playServices();
    /// The service alone; returns when it waits for commands.
    void startService(std::vector<std::string> options = {"-l", "7"});
    bool waitForSubscriptions();

    /// Registers the consumer and takes its first message, "status-all", from it.
    void registerAndGreet(Consumer& consumer);
    int add(const std::string& address) { return command(kAdd, address)["result"].asInt(); }
    int remove(const std::string& address) { return command(kRemove, address)["result"].asInt(); }

    /// The document, as "GET device status" gives it.
    Json::Value document();
    /// The ids of the document's sessions, in order.
    std::vector<unsigned> sessionIds();

    /// Asks for the stop and returns the exit status; nothing when it takes longer than a second.
    std::optional<int> stop(int signal);

    /// "GET Server list"; the reply's payload.
    Json::Value list();

    /// The log so far. Of a running service, which must log at level 6 or more, it holds all that
    /// was done before the call: a list of the consumers is asked for, and its line waited for.
    std::vector<std::string> log() { return logLines(wholeLog()); }
    std::vector<std::string> errors() { return errorLines(wholeLog()); }

    static constexpr unsigned kGetStatus = 0;
    static constexpr unsigned kAdd = 1;
    static constexpr unsigned kRemove = 2;
    static constexpr unsigned kList = 3;

    zmq::context_t context;
    std::optional<PlayedPublisher> session;
    std::optional<PlayedPublisher> system;
    std::optional<PlayedPublisher> ptp;
    std::optional<PlayedNmosNode> node;
    std::optional<ChildProcess> service;
    CommandClient client{context};

private:
    Json::Value command(unsigned id, const std::string& address);
    std::string wholeLog();

    int lists = 0;
};
