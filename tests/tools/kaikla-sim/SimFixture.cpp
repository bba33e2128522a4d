#include "tests/tools/kaikla-sim/SimFixture.hpp"

#include <fstream>

std::string SimFixture::fileOf(const std::string& text) {
    std::string name = directory.file("scenario-" + std::to_string(++files));
    std::ofstream(name) << text;
    return name;
}

void SimFixture::startSim(const std::string& lines, const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {"kaikla-sim", "--scenario", fileOf(lines)};
    arguments.insert(arguments.end(), options.begin(), options.end());
    sim.emplace(std::move(arguments));
    ASSERT_TRUE(sim->waitForOutput("kaikla-sim: ready")) << sim->error();
}

void SimFixture::playAll(const std::string& lines) {
    startSim(lines);
    ASSERT_TRUE(sim->waitForOutput("has been played"));
}

Json::Value SimFixture::waitForDocument(const std::function<bool(const Json::Value&)>& isComplete,
                                        std::chrono::milliseconds limit) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + limit;
    Consumer consumer(context);
    add(consumer.address());
    Json::Value found;
    for (;;) {
        Json::Value seen = document();
        if (isComplete(seen)) {
            found = std::move(seen);
            break;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        if (left <= std::chrono::milliseconds(0) || !consumer.receiveText(left)) {
            break;
        }
    }
    remove(consumer.address());
    return found;
}

std::optional<int> SimFixture::stop(ChildProcess& process, int signal) {
    process.signal(signal);
    return process.waitForExit(std::chrono::seconds(1));
}
