#include "tools/kaiklactl/CommandLine.hpp"

#include "tools/kaiklactl/Terminal.hpp"

#include <CLI/CLI.hpp>

#include <iostream>
#include <vector>

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

std::string checkTimeout(const std::string& text) {
    double seconds = 0;
    const bool usable = CLI::detail::lexical_cast(text, seconds) && seconds >= kShortestTimeoutS &&
                        seconds <= kLongestTimeoutS;
    return usable ? "" : "it must be from 0.01 to 3600 seconds, not " + text;
}

std::string checkCount(const std::string& text) {
    unsigned long count = 0;
    const bool usable =
        text.find('-') == std::string::npos && CLI::detail::lexical_cast(text, count) && count > 0;
    return usable ? "" : "it must be a number of messages, 1 or more, not " + text;
}

/// The sentence of an error, with the word that is no command where there is one.
void explain(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining();
    if (app.get_subcommands().empty() && !unknown.empty()) {
        std::cerr << "kaiklactl: there is no command \"" << printable(unknown.front()).text
                  << "\"; \"kaiklactl --help\" names them.\n";
    } else {
        app.exit(error);
    }
}

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
        ->check(checkTimeout)
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
    CLI::Option* json =
        status->add_flag("--json", options.json, "Print the status document as it came");
    status->add_flag("--pretty", options.pretty, "Print the status document as indented JSON")
        ->excludes(json);

    addAddress(command("add", "Register a consumer; it gets the whole status at once", Action::add))
        ->required();
    addAddress(command("remove", "Take a consumer out", Action::remove))->required();
    CLI::App* list = command("list", "Print the registered consumers, one a line", Action::list);
    list->add_flag_callback(
        "--no-check", [&options] { options.check = false; },
        "Print the addresses alone, without trying to reach them");

    CLI::App* watch =
        command("watch", "Be a consumer: print each message as one line", Action::watch);
    watch->add_option("--bind", options.bind, "Where to listen instead of a port of 5591 to 5599")
        ->type_name("ENDPOINT");
    watch
        ->add_option("--address", options.advertised,
                     "What to register when the service reaches it under another address")
        ->type_name("ENDPOINT");
    watch->add_option("--count", options.count, "End after this many messages")
        ->type_name("N")
        ->check(checkCount);
    watch->add_flag("--json", options.json, "Print each message as one line of JSON");

    addAddress(command("doctor", "Find out why a consumer gets nothing", Action::doctor));
    addAddress(command("drain", "Free the service from a consumer that is gone: stand in for it",
                       Action::drain))
        ->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version count as parse errors with the code 0.
        if (error.get_exit_code() == 0) {
            app.exit(error);
            return std::cout.flush() ? ExitStatus::success : ExitStatus::output;
        }
        explain(app, error);
        return ExitStatus::usage;
    }
    options.timeout = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::duration<double>(timeoutS));
    return options;
}

} // namespace kaiklactl
