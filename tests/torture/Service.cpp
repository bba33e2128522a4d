#include "tests/torture/Service.hpp"

#include "handler/WebNotifierCommand.hpp"
#include "tests/torture/Report.hpp"

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

namespace {

using Clock = std::chrono::steady_clock;

std::vector<std::string> commandLine(const Service::Options& options) {
    std::vector<std::string> words = options.launcher;
    if (options.withoutStandardError) {
        words.insert(words.end(), {"/bin/sh", "-c", R"(exec "$0" "$@" 2>/dev/null)"});
    }
    words.push_back(builtProgram("kaikla"));
    words.insert(words.end(), options.arguments.begin(), options.arguments.end());
    return words;
}

int resultOf(const Json::Value& reply) {
    require(reply.isObject(), "every request is answered");
    return reply["result"].asInt();
}

Json::Value addressPayload(const std::string& address) {
    Json::Value payload;
    payload["address"] = address;
    return payload;
}

} // namespace

Service::Service(zmq::context_t& context) : Service(context, Options{}) {}

Service::Service(zmq::context_t& context, const Options& options)
    : child(commandLine(options)), commands(context) {
    require(resultOf(commands.request(WebNotifierCommand::get_server_list)) == 0,
            "the service starts");
}

int Service::addRemote(const std::string& address) {
    return resultOf(
        commands.request(WebNotifierCommand::add_remote_info_consumer, addressPayload(address)));
}

int Service::removeRemote(const std::string& address) {
    return resultOf(
        commands.request(WebNotifierCommand::remove_remote_info_consumer, addressPayload(address)));
}

Json::Value Service::document() {
    Json::Value reply = commands.request(WebNotifierCommand::get_device_status);
    require(resultOf(reply) == 0, "the document is given on request");
    return reply["payload"]["status"];
}

void Service::giveUpAfter(Clock::time_point end) {
    require(Clock::now() < end, "the document shows what has been notified");
    constexpr int kPauseMs = 2;
    ::poll(nullptr, 0, kPauseMs);
}

std::size_t Service::residentBytes() const {
    std::ifstream statm("/proc/" + std::to_string(child.pid()) + "/statm");
    std::size_t totalPages = 0;
    std::size_t residentPages = 0;
    statm >> totalPages >> residentPages;
    return residentPages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

std::chrono::milliseconds stopProcess(ChildProcess& child) {
    constexpr std::chrono::milliseconds kPromised{1000};
    const auto start = Clock::now();
    child.signal(SIGTERM);
    const auto status = child.waitForExit(2 * kPromised);
    const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    require(status == 0, "SIGTERM ends the service with status 0, not " +
                             (status ? std::to_string(*status) : std::string("later")));
    require(taken <= kPromised,
            "a stop takes a second at most, not " + std::to_string(taken.count()) + " ms");
    return taken;
}
