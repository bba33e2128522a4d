#include "tests/tools/kaikla-sim/SimFixture.hpp"

#include <unistd.h>

#include <fstream>
#include <sstream>

namespace {

constexpr unsigned kGetStatus = 0;
constexpr unsigned kAdd = 1;
constexpr unsigned kRemove = 2;

} // namespace

SimFixture::~SimFixture() {
    for (const std::string& name : files) {
        ::unlink(name.c_str());
    }
}

std::string SimFixture::freshFileName() {
    files.push_back(testing::TempDir() + "kaikla-sim-" + std::to_string(::getpid()) + "-" +
                    std::to_string(files.size()) + ".jsonl");
    return files.back();
}

std::string SimFixture::fileOf(const std::string& text) {
    std::string name = freshFileName();
    std::ofstream(name) << text;
    return name;
}

std::string SimFixture::contentOf(const std::string& fileName) {
    std::ostringstream content;
    content << std::ifstream(fileName).rdbuf();
    return content.str();
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

void SimFixture::startService() {
    service.emplace(std::vector<std::string>{"kaikla", "-l", "5"});
    ASSERT_TRUE(service->waitForError("waiting for commands")) << service->error();
}

Json::Value SimFixture::document() {
    return client.request(kGetStatus)["payload"]["status"];
}

Json::Value SimFixture::waitForDocument(const std::function<bool(const Json::Value&)>& isComplete,
                                        std::chrono::milliseconds limit) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + limit;
    Consumer consumer(context);
    Json::Value address;
    address["address"] = consumer.address();
    client.request(kAdd, address);
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
    client.request(kRemove, address);
    return found;
}

std::optional<int> SimFixture::stop(ChildProcess& process, int signal) {
    process.signal(signal);
    return process.waitForExit(std::chrono::seconds(1));
}
