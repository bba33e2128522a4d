#pragma once

#include "tests/support/ChildProcess.hpp"
#include "tests/support/CommandClient.hpp"

#include <zmq.hpp>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

/// Ends the service by SIGTERM: status 0 within a second, or the promise is broken. Returns the
/// time that it took.
std::chrono::milliseconds stopProcess(ChildProcess& child);

/// The service under torture: the real binary, started and ready for commands.
class Service {
public:
    struct Options {
        /// Options of the service itself.
        std::vector<std::string> arguments;
        /// A command that ends by executing the words behind it, such as {"prlimit",
        /// "--nofile=64"}.
        std::vector<std::string> launcher;
        /// Standard error goes to /dev/null instead of into this process's memory.
        bool withoutStandardError = false;
    };

    explicit Service(zmq::context_t& context);
    Service(zmq::context_t& context, const Options& options);

    CommandClient& client() { return commands; }
    ChildProcess& process() { return child; }

    /// Registers or removes a consumer; returns the reply's result.
    int addRemote(const std::string& address);
    int removeRemote(const std::string& address);
    /// The device status document.
    Json::Value document();
    /// The document, as soon as `accepted` says yes to it; throws BrokenPromise after `limit`.
    template <typename Accepted>
    Json::Value waitForDocument(Accepted accepted,
                                std::chrono::milliseconds limit = std::chrono::seconds(10)) {
        const auto end = std::chrono::steady_clock::now() + limit;
        for (;;) {
            Json::Value current = document();
            if (accepted(current)) {
                return current;
            }
            giveUpAfter(end);
        }
    }
    /// Resident memory, bytes.
    std::size_t residentBytes() const;

    std::chrono::milliseconds stop() { return stopProcess(child); }

private:
    static void giveUpAfter(std::chrono::steady_clock::time_point end);

    ChildProcess child;
    CommandClient commands;
};
