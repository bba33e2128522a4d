#include "platform/api/Logger.hpp"
#include "tools/kaikla-devices/Crowd.hpp"

#include <CLI/CLI.hpp>

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <list>
#include <string>

namespace {

struct Options {
    std::string address = "mqtt://127.0.0.1";
    gateway::Broker broker;
    std::size_t devices = 50;
    std::size_t sessions = 4;
    std::size_t connections = 4;
    double rate = 1;
    unsigned seed = 1;
};

void readCommandLine(CLI::App& app, Options& options, int argc, char** argv) {
    const CLI::Range some(1, 100'000);
    app.add_option("--mqtt", options.address, "The broker: mqtt[s]://[USER@]HOST[:PORT]")
        ->capture_default_str();
    app.add_option("--mqtt-password-file", options.broker.passwordFile, "The user's password");
    app.add_option("--mqtt-ca", options.broker.ca, "Who signs the broker's certificate, PEM");
    app.add_option("--devices", options.devices, "How many: played-1, played-2, ...")
        ->check(some)
        ->capture_default_str();
    app.add_option("--sessions", options.sessions, "Sessions of each")->capture_default_str();
    app.add_option("--connections", options.connections, "Connections that they share")
        ->check(some)
        ->capture_default_str();
    app.add_option("--rate", options.rate, "Changes a second of each")
        ->check(CLI::Range(0.0, 1000.0))
        ->capture_default_str();
    app.add_option("--seed", options.seed, "Equal seeds play equally")->capture_default_str();
    app.parse(argc, argv);
    const auto broker = gateway::Broker::at(options.address, options.broker);
    if (!broker) {
        throw CLI::ValidationError("--mqtt", options.address + " is no address of a broker");
    }
    options.broker = *broker;
}

void play(const Options& options) {
    boost::asio::io_context loop(1);
    std::list<devices::Crowd> crowds;
    for (std::size_t first = 0; first < options.connections; ++first) {
        std::vector<devices::PlayedDevice> played;
        for (std::size_t i = first; i < options.devices; i += options.connections) {
            const std::string number = std::to_string(i + 1);
            played.emplace_back("played-" + number, options.sessions,
                                options.seed + static_cast<unsigned>(i));
        }
        if (!played.empty()) {
            const std::string clientId =
                "kaikla-devices-" + std::to_string(::getpid()) + "-" + std::to_string(first);
            crowds.emplace_back(loop, options.broker, clientId, std::move(played), options.rate);
        }
    }
    boost::asio::signal_set signals(loop, SIGTERM, SIGINT);
    std::size_t left = crowds.size();
    signals.async_wait([&](const boost::system::error_code&, int) {
        for (devices::Crowd& crowd : crowds) {
            crowd.stop([&loop, &left] {
                if (--left == 0) {
                    loop.stop();
                }
            });
        }
    });
    loop.run();
    std::uint64_t leftOut = 0;
    for (const devices::Crowd& crowd : crowds) {
        leftOut += crowd.leftOut();
    }
    if (leftOut > 0) {
        std::cerr << "kaikla-devices: the broker was too slow for " << leftOut << " changes\n";
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app("Plays many devices on an MQTT broker, as their gateways would.",
                     "kaikla-devices");
        Options options;
        try {
            readCommandLine(app, options, argc, argv);
        } catch (const CLI::ParseError& error) {
            constexpr int kUsageStatus = 2;
            return app.exit(error) == 0 ? EXIT_SUCCESS : kUsageStatus;
        }
        Logger::createLogger(static_cast<unsigned>(Logger::LOG_LEVEL_NTF) |
                                 Logger::kToStandardError,
                             "", "kaikla-devices");
        play(options);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::cerr << "kaikla-devices: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
