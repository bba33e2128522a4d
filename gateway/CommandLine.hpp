#pragma once

#include "gateway/MqttClient.hpp"
#include "platform/PlatformProtocol.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace gateway {

/// An IP address of this host, or 0.0.0.0 or :: for all of them, and a port.
struct ListenAddress {
    std::string address;
    std::uint16_t port = 0;

    bool isLoopback() const;
};

/// The side towards clients.
struct ServerOptions {
    std::vector<ListenAddress> listen;
    std::vector<std::string> hosts;
    /// For listeners beyond loopback; all three or, with --insecure, none.
    std::string tlsCertificate;
    std::string tlsKey;
    std::string users;
};

struct Options {
    std::string service = platform_protocol::kCommandEndpoint;
    std::string consumer;
    ServerOptions server;
    bool sessionMetrics = false;
    /// Many devices are shown, from what they publish.
    bool isFleet = false;
    /// Where the state is published, under the instance's name, or where a fleet finds it.
    std::optional<Broker> broker;
    std::string instance;
    std::string logFile;
    int logLevel = 0;
};

/// Reads the command line. Without a value, `exitStatus` says how the process ends: help and
/// version have been printed, or a mistake has been told on standard error (status 2).
std::optional<Options> readCommandLine(int argc, char** argv, int& exitStatus);

} // namespace gateway
