#include "tools/kaikla-sim/CommandLine.hpp"

#include <CLI/CLI.hpp>

#include <cmath>

namespace sim {

namespace {

constexpr const char* kFooter = R"(
A scenario is a file of JSON lines; kaikla-sim(1) tells where it is described.

Exit status: 0 after a signal or --exit-at-end, 1 when the scenario is refused, a port is taken or a
file cannot be read or written, 2 for usage.)";

std::string checkSpeed(const std::string& text) {
    double speed = 0;
    const bool usable = CLI::detail::lexical_cast(text, speed) && std::isfinite(speed) && speed > 0;
    return usable ? std::string() : "the speed must be a number above 0, not " + text;
}

std::string checkNotEmpty(const std::string& text) {
    return text.empty() ? "it must not be empty" : std::string();
}

} // namespace

std::variant<Options, ExitStatus> readCommandLine(int argc, const char* const* argv) {
    Options options;
    CLI::App app("Plays the services around kaikla, so that it runs without a device.",
                 "kaikla-sim");
    app.set_version_flag("--version", "kaikla-sim " KAIKLA_VERSION);
    app.footer(kFooter);

    CLI::Option* const scenario = app.add_option("--scenario", options.scenarioFile,
                                                 "Scenario to play instead of the built-in day")
                                      ->type_name("FILE");
    CLI::Option* const deviceId =
        app.add_option("--device-id", options.deviceId,
                       "Id that the NMOS node gives and that \"@device\" in a scenario stands for")
            ->type_name("ID")
            ->check(checkNotEmpty);
    CLI::Option* const speed =
        app.add_option("--speed", options.play.speed, "2 plays in half the time")
            ->type_name("X")
            ->check(checkSpeed);
    CLI::Option* const loop =
        app.add_flag("--loop", options.play.loop, "Begin again when the scenario has ended");
    CLI::Option* const exitAtEnd =
        app.add_flag("--exit-at-end", options.play.exitAtEnd,
                     "End when the scenario has ended, instead of staying as the device")
            ->excludes(loop);

    CLI::App* const record = app.add_subcommand(
        "record", "Record what a device's services send, until SIGINT or SIGTERM");
    record
        ->add_option("FILE", options.recordFile,
                     "Scenario to write, overwritten if it exists; - is standard output")
        ->required();
    for (CLI::Option* const option : {scenario, deviceId, speed, loop, exitAtEnd}) {
        record->excludes(option);
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitStatus::success : ExitStatus::usage;
    }
    return options;
}

} // namespace sim
