#include "gateway/CommandLine.hpp"

#include "gateway/TopicText.hpp"
#include "platform/api/Logger.hpp"
#include "tools/client/Address.hpp"
#include "tools/client/Failure.hpp"

#include <CLI/CLI.hpp>

#include <arpa/inet.h>

#include <algorithm>
#include <array>

namespace gateway {
namespace {

constexpr int kUsageStatus = 2;

bool isAddress(const std::string& text) {
    std::array<unsigned char, sizeof(in6_addr)> ignored{};
    return ::inet_pton(AF_INET, text.c_str(), ignored.data()) == 1 ||
           ::inet_pton(AF_INET6, text.c_str(), ignored.data()) == 1;
}

ListenAddress listenAddress(const std::string& text) {
    const auto colon = text.rfind(':');
    ListenAddress result{text.substr(0, colon), 0};
    if (result.address.starts_with('[') && result.address.ends_with(']')) {
        result.address = result.address.substr(1, result.address.size() - 2);
    }
    if (colon == std::string::npos || !isAddress(result.address) ||
        !CLI::detail::lexical_cast(text.substr(colon + 1), result.port) || result.port == 0) {
        throw CLI::ValidationError("--listen", text + " is no ADDRESS:PORT");
    }
    return result;
}

void checkSecurity(const ServerOptions& options, bool insecure) {
    const bool isOpen = std::any_of(options.listen.begin(), options.listen.end(),
                                    [](const ListenAddress& each) { return !each.isLoopback(); });
    const bool hasAny =
        !options.tlsCertificate.empty() || !options.tlsKey.empty() || !options.users.empty();
    const bool hasAll =
        !options.tlsCertificate.empty() && !options.tlsKey.empty() && !options.users.empty();
    if (hasAny && !hasAll) {
        throw CLI::ValidationError("--tls-cert", "--tls-key and --users go together with it");
    }
    if (isOpen && !hasAll && !insecure) {
        throw CLI::ValidationError(
            "--listen", "an address beyond loopback needs --tls-cert, --tls-key and --users, or "
                        "--insecure");
    }
    if (hasAll && (!isOpen || insecure)) {
        throw CLI::ValidationError("--tls-cert",
                                   "it is for a --listen beyond loopback, without --insecure");
    }
}

void checkEndpoint(const char* option, const std::string& endpoint) {
    try {
        client::checkConnectable(endpoint);
    } catch (const client::BadEndpoint& failure) {
        throw CLI::ValidationError(option, failure.what());
    }
}

void checkFleet(const CLI::App& app) {
    if (app.count("--mqtt") == 0) {
        throw CLI::RequiredError("--mqtt");
    }
    for (const char* const option :
         {"--service", "--consumer", "--instance", "--session-metrics"}) {
        if (app.count(option) > 0) {
            throw CLI::ValidationError(option, "it is for the gateway of one device");
        }
    }
}

/// The options that say which broker, and who one is there.
class BrokerOptions {
public:
    explicit BrokerOptions(CLI::App& app) {
        app.add_option("--mqtt", address, "An MQTT broker: mqtt[s]://[USER@]HOST[:PORT]")
            ->type_name("ADDRESS");
        const auto addFile = [&app](const char* name, std::string& file, const char* what) {
            app.add_option(name, file, what)->type_name("FILE")->needs("--mqtt");
        };
        addFile("--mqtt-password-file", broker.passwordFile, "The user's password there");
        addFile("--mqtt-ca", broker.ca, "Who signs the broker's certificate, PEM");
        addFile("--mqtt-cert", broker.certificate, "Certificate to show to the broker, PEM");
        addFile("--mqtt-key", broker.key, "Its private key, PEM");
    }

    /// Nothing when none is named.
    std::optional<Broker> read() const {
        if (address.empty()) {
            return std::nullopt;
        }
        std::optional<Broker> read = Broker::at(address, broker);
        if (!read) {
            throw CLI::ValidationError("--mqtt", address +
                                                     " is no mqtt[s]://[USER@]HOST[:PORT]; a "
                                                     "password goes into --mqtt-password-file");
        }
        if (read->certificate.empty() != read->key.empty()) {
            throw CLI::ValidationError("--mqtt-cert", "--mqtt-key goes together with it");
        }
        if (!read->isSecure && !(read->ca + read->certificate).empty()) {
            throw CLI::ValidationError("--mqtt", "certificates are for mqtts://");
        }
        if (read->user.empty() && !read->passwordFile.empty()) {
            throw CLI::ValidationError("--mqtt", "a password needs a USER@");
        }
        return read;
    }

private:
    std::string address;
    Broker broker;
};

} // namespace

bool ListenAddress::isLoopback() const {
    return address == "::1" || address.starts_with("127.");
}

std::optional<Options> readCommandLine(int argc, char** argv, int& exitStatus) {
    Options options;
    options.consumer = "tcp://127.0.0.1:5590";
    options.logLevel = Logger::LOG_LEVEL_INF;
    std::vector<std::string> listen = {"127.0.0.1:8580"};

    CLI::App app("Gives what kaikla tells to browsers, scripts and monitoring.", "kaikla-gateway");
    app.set_version_flag("--version", "kaikla-gateway " KAIKLA_VERSION);
    app.add_option("--service", options.service, "The service's command interface")
        ->type_name("ENDPOINT")
        ->capture_default_str();
    app.add_option("--consumer", options.consumer, "Where the service sends to")
        ->type_name("ENDPOINT")
        ->capture_default_str();
    app.add_option("--listen", listen, "Where clients connect to; may be given several times")
        ->type_name("ADDRESS:PORT")
        ->capture_default_str();
    app.add_option("--host", options.server.hosts, "A name of this host that clients may use")
        ->type_name("NAME");
    app.add_option("--tls-cert", options.server.tlsCertificate, "Certificate chain, PEM")
        ->type_name("FILE");
    app.add_option("--tls-key", options.server.tlsKey, "Its private key, PEM")->type_name("FILE");
    app.add_option("--users", options.server.users, "Lines name:hash, hashed by openssl passwd -6")
        ->type_name("FILE");
    bool insecure = false;
    app.add_flag("--insecure", insecure, "Listen beyond loopback without TLS and users");
    app.add_flag("--session-metrics", options.sessionMetrics,
                 "A metric for each of the first 200 sessions");
    BrokerOptions broker(app);
    app.add_option("--instance", options.instance, "This device's name at the broker")
        ->type_name("NAME")
        ->check([](const std::string& text) {
            return isInstanceName(text) ? "" : "letters, digits, - _ . and at most 64 of them";
        });
    app.add_option("-L,--log", options.logFile, "Log into this file, too")->type_name("FILE");
    app.add_option("-l,--log-level", options.logLevel, "2 errors, 3 warnings, 4 notices, 5 all")
        ->type_name("LEVEL")
        ->check(CLI::Range(0, static_cast<int>(Logger::kLevelMask)))
        ->capture_default_str();

    const CLI::App* const fleet =
        app.add_subcommand("fleet", "Shows every device that publishes at the broker of --mqtt")
            ->fallthrough()
            ->footer(
                "The other options are those of kaikla-gateway --help, but --service, --consumer,\n"
                "--instance and --session-metrics.");

    try {
        app.parse(argc, argv);
        for (const std::string& text : listen) {
            options.server.listen.push_back(listenAddress(text));
        }
        checkSecurity(options.server, insecure);
        checkEndpoint("--service", options.service);
        checkEndpoint("--consumer", options.consumer);
        options.broker = broker.read();
        options.isFleet = fleet->parsed();
        if (options.isFleet) {
            checkFleet(app);
        } else if (options.broker.has_value() == options.instance.empty()) {
            throw CLI::ValidationError("--mqtt", "it goes together with --instance");
        }
    } catch (const CLI::ParseError& error) {
        // Help and version count as parse errors with the code 0.
        exitStatus = app.exit(error) == 0 ? 0 : kUsageStatus;
        return std::nullopt;
    }
    return options;
}

} // namespace gateway
