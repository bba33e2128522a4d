#include "tools/kaikla-sim/CommandLine.hpp"
#include "tools/kaikla-sim/Recorder.hpp"
#include "tools/kaikla-sim/Scenario.hpp"
#include "tools/kaikla-sim/SimulatedDevice.hpp"
#include "tools/process/StandardStreams.hpp"
#include "tools/process/StopSignals.hpp"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace {

std::optional<sim::Scenario> readWantedScenario(const sim::Options& options,
                                                const StopSignals& stop) {
    if (options.scenarioFile) {
        return sim::readScenarioFile(*options.scenarioFile, options.deviceId, stop);
    }
    std::istringstream day(sim::kBuiltInDay);
    return sim::readScenario(day, "built-in day", options.deviceId, stop);
}

void play(const sim::Options& options) {
    const StopSignals stop;
    const std::optional<sim::Scenario> scenario = readWantedScenario(options, stop);
    if (!scenario) {
        return;
    }
    if (options.play.loop && scenario->length() == std::chrono::milliseconds(0)) {
        throw std::runtime_error(
            "--loop needs a scenario whose last notification comes after 0 ms");
    }
    zmq::context_t context;
    sim::SimulatedDevice device(context, *scenario);
    device.run(options.play, stop, std::cout);
    if (stop.arrived()) {
        // Without freeing: for a million sessions that takes longer than a stop should.
        std::quick_exit(EXIT_SUCCESS);
    }
}

void record(const std::string& fileName) {
    const bool toStandardOutput = fileName == "-";
    std::ofstream file;
    if (!toStandardOutput) {
        file.open(fileName);
        if (!file) {
            throw std::runtime_error("cannot open " + fileName + ": " + std::strerror(errno));
        }
    }
    // Not earlier: opening a named pipe waits for its reader, and a signal must end that.
    const StopSignals stop;
    zmq::context_t context;
    sim::Recorder recorder(context, toStandardOutput ? std::cout : file,
                           toStandardOutput ? "standard output" : fileName, std::cerr);
    std::cerr << "kaikla-sim: recording until SIGINT or SIGTERM\n";
    recorder.run(stop);
    std::cerr << "kaikla-sim: " << recorder.recorded() << " notifications recorded\n";
}

} // namespace

int main(int argc, char** argv) {
    occupyStandardStreams();
    // A write to a closed pipe must fail, not end the process.
    (void)std::signal(SIGPIPE, SIG_IGN);
    try {
        const auto line = sim::readCommandLine(argc, argv);
        if (const auto* const status = std::get_if<sim::ExitStatus>(&line)) {
            return static_cast<int>(*status);
        }
        const auto& options = std::get<sim::Options>(line);
        if (options.recordFile) {
            record(*options.recordFile);
        } else {
            play(options);
        }
        return static_cast<int>(sim::ExitStatus::success);
    } catch (const std::exception& error) {
        std::cerr << "kaikla-sim: " << error.what() << '\n';
        return static_cast<int>(sim::ExitStatus::failed);
    }
}
