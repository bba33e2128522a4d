#include "tools/kaikla-sim/BuiltInDay.hpp"
#include "tools/kaikla-sim/CommandLine.hpp"
#include "tools/kaikla-sim/Recorder.hpp"
#include "tools/kaikla-sim/Scenario.hpp"
#include "tools/kaikla-sim/SimulatedDevice.hpp"
#include "tools/signals/StopSignals.hpp"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace {

sim::Scenario readWantedScenario(const sim::CommandLine& line) {
    if (line.scenarioFile) {
        return sim::readScenarioFile(*line.scenarioFile, line.deviceId);
    }
    std::istringstream day(sim::kBuiltInDay);
    return sim::readScenario(day, "built-in day", line.deviceId);
}

void play(const sim::CommandLine& line) {
    const sim::Scenario scenario = readWantedScenario(line);
    if (line.play.loop && scenario.length() == std::chrono::milliseconds(0)) {
        throw std::runtime_error(
            "--loop needs a scenario whose last notification comes after 0 ms");
    }
    const StopSignals signals;
    zmq::context_t context;
    sim::SimulatedDevice device(context, scenario);
    device.run(line.play, signals.descriptor(), std::cout);
}

void record(const std::string& fileName) {
    sim::RecordingFile file(fileName);
    const StopSignals signals;
    zmq::context_t context;
    sim::Recorder recorder(context, file, std::cerr);
    std::cerr << "kaikla-sim: recording until SIGINT or SIGTERM\n";
    recorder.run(signals.descriptor());
    std::cerr << "kaikla-sim: " << recorder.recorded() << " notifications recorded\n";
}

} // namespace

int main(int argc, char** argv) {
    StopSignals::endProcessAtOnce();
    // An output that nobody reads any more is a failed write, not the end.
    (void)std::signal(SIGPIPE, SIG_IGN);
    try {
        const auto line = sim::readCommandLine(argc, argv);
        if (const int* const status = std::get_if<int>(&line)) {
            return *status;
        }
        const auto& wanted = std::get<sim::CommandLine>(line);
        if (wanted.recordFile) {
            record(*wanted.recordFile);
        } else {
            play(wanted);
        }
    } catch (const std::exception& error) {
        std::cerr << "kaikla-sim: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
