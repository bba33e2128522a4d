#include "tools/kaiklactl/CommandLine.hpp"

#include <CLI/CLI.hpp>

namespace kaiklactl {
namespace {

constexpr double kDefaultTimeoutS = 3;
constexpr double kShortestTimeoutS = 0.01;
constexpr double kLongestTimeoutS = 3600;

constexpr const char* kFooter = R"(
Exit status:
  0  done
  1  refused by the service, whose sentence is printed; or the doctor found a fault
  2  the command line cannot be carried out
  3  no answer from the service
  4  the output cannot be written)";

} // namespace

std::variant<Options, ExitStatus> readCommandLine(int argc, const char* const* argv) {
    using Action = Options::Action;
    Options options;
    double timeoutS = kDefaultTimeoutS;

    CLI::App app("Talks to kaikla, the service that tells what a media device is doing.",
                 "kaiklactl");
    app.set_version_flag("--version", "kaiklactl " KAIKLA_VERSION);
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--server", options.server, "Endpoint of the service's command interface")
        ->type_name("ENDPOINT")
        ->capture_default_str();
    app.add_option("--timeout", timeoutS, "How long the service may take to answer")
        ->type_name("SECONDS")
        ->check(CLI::Range(kShortestTimeoutS, kLongestTimeoutS))
        ->capture_default_str();

    const auto command = [&](const char* name, const char* description, Action action) {
        CLI::App* subcommand = app.add_subcommand(name, description);
        subcommand->callback([&options, action] { options.action = action; });
        return subcommand;
    };
    const auto addAddress = [&](CLI::App* subcommand) {
        return subcommand->add_option("address", options.address,
                                      "The consumer's address, such as tcp://192.0.2.10:7000");
    };

    CLI::App* status = command("status", "Print what the device is doing", Action::status);
    status->add_flag("--json", options.json, "Print the status document as it came");
    status->add_flag("--pretty", options.pretty, "Print the status document as indented JSON");

    addAddress(command("add", "Register a consumer; it gets the whole status at once", Action::add))
        ->required();
    addAddress(command("remove", "Take a consumer out", Action::remove))->required();
    command("list", "Print the registered consumers, one a line", Action::list);

    CLI::App* watch =
        command("watch", "Be a consumer: print each message as one line", Action::watch);
    watch->add_option("--bind", options.bind, "Where to listen instead of a free port")
        ->type_name("ENDPOINT");
    watch
        ->add_option("--address", options.advertised,
                     "What to register when the service reaches it under another address")
        ->type_name("ENDPOINT");
    watch->add_option("--count", options.count, "End after this many messages")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    watch->add_flag("--json", options.json, "Print each message as one line of JSON");

    addAddress(command("doctor", "Find out why a consumer gets nothing", Action::doctor));

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version count as parse errors with the code 0.
        return app.exit(error) == 0 ? ExitStatus::success : ExitStatus::usage;
    }
    options.timeout = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::duration<double>(timeoutS));
    return options;
}

} // namespace kaiklactl
