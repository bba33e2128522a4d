#include "bench/Exchange.hpp"
#include "bench/Peers.hpp"
#include "bench/Workload.hpp"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using std::chrono::nanoseconds;
using Seconds = std::chrono::duration<double>;
using Microseconds = std::chrono::duration<double, std::micro>;

struct Options {
    std::size_t consumers = 1;
    unsigned streams = 4;
    std::uint64_t sessions = 8;
    bool documents = false;
    bool random = false;
    std::size_t window = 64;
    double seconds = 1;
    double latencySeconds = 0;
    double idleSeconds = 0;
    std::uint64_t events = 0;
    std::uint16_t brokerPort = 0;
    pid_t subject = ::getpid();
};

void declare(CLI::App& app, Options& options) {
    const CLI::Range some(1, 1'000'000);
    app.add_option("--seconds", options.seconds, "how long to measure throughput (1)");
    app.add_option("--latency", options.latencySeconds,
                   "how long to measure latency, at a window of 1 (0)");
    app.add_option("--idle", options.idleSeconds,
                   "how long to measure CPU time without events (0)");
    app.add_option("--events", options.events,
                   "send exactly so many events, instead of measuring (for a profiler)");
    app.add_option("--broker", options.brokerPort,
                   "the subject is an MQTT broker on this port of 127.0.0.1");
    app.add_option("--pid", options.subject, "the subject's process, for its CPU time (this one)");
    app.add_flag("--documents", options.documents,
                 "send PTP statuses, which are answered with the whole document, instead of "
                 "session statuses");
    app.add_flag("--random", options.random, "take the sessions at random instead of in turn");
    app.add_option("--consumers", options.consumers, "consumers to register (1)")->check(some);
    app.add_option("--streams", options.streams, "streams of a session (4)")->check(some);
    app.add_option("--sessions", options.sessions, "sessions at the start (8)")->check(some);
    app.add_option("--window", options.window, "events on their way at a time (64)")->check(some);
}

nanoseconds toNanoseconds(double seconds) {
    return std::chrono::duration_cast<nanoseconds>(Seconds(seconds));
}

/// CPU time of a process, over all its threads.
nanoseconds cpuTimeOf(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("there is no process " + std::to_string(process));
    }
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

double medianMicroseconds(std::vector<nanoseconds> values) {
    if (values.empty()) {
        return 0;
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return Microseconds(*middle).count();
}

void run(const Options& options) {
    const std::unique_ptr<Peers> peers =
        options.brokerPort == 0 ? playPlatform(options.consumers)
                                : connectToBroker(options.brokerPort, options.consumers);
    const auto statuses = [&](Workload::Order order) {
        return Workload::sessionStatuses(*peers, options.streams, options.sessions, order);
    };

    Workload population = statuses(Workload::Order::cyclic);
    Exchange exchange(*peers, options.window, population);
    // Event 0 has put the first session there already.
    exchange.runThrough(options.sessions - 1, options.window, population);
    Workload workload =
        options.documents
            ? Workload::documents(*peers, options.streams, options.sessions)
            : statuses(options.random ? Workload::Order::random : Workload::Order::cyclic);
    if (options.events > 0) {
        exchange.runThrough(options.events, options.window, workload);
        return;
    }

    constexpr std::chrono::milliseconds kWarmUp{100};
    constexpr int kSettlePart = 10;
    exchange.runFor(kWarmUp, options.window, workload);
    const nanoseconds subjectBefore = cpuTimeOf(options.subject);
    const nanoseconds ownBefore = cpuTimeOf(::getpid());
    const Exchange::Outcome throughput =
        exchange.runFor(toNanoseconds(options.seconds), options.window, workload);
    const nanoseconds subjectTime = cpuTimeOf(options.subject) - subjectBefore;
    const nanoseconds ownTime = cpuTimeOf(::getpid()) - ownBefore;
    exchange.drain();
    const Exchange::Outcome latency =
        exchange.runFor(toNanoseconds(options.latencySeconds), 1, workload);
    exchange.drain();

    // The subject may need a moment to write the last line of its log.
    std::this_thread::sleep_for(toNanoseconds(options.idleSeconds) / kSettlePart);
    const nanoseconds idleBefore = cpuTimeOf(options.subject);
    std::this_thread::sleep_for(toNanoseconds(options.idleSeconds));
    const nanoseconds idleTime = cpuTimeOf(options.subject) - idleBefore;

    const double elapsed = Seconds(throughput.elapsed).count();
    const double events =
        static_cast<double>(throughput.deliveries) / static_cast<double>(options.consumers);
    std::cout << R"({"events_per_second":)" << events / elapsed //
              << R"(,"latency_p50_us":)" << medianMicroseconds(latency.latencies)
              << R"(,"cpu_us_per_event":)"
              << (events > 0 ? Microseconds(subjectTime).count() / events : 0)
              << R"(,"load_cores":)" << Seconds(ownTime).count() / elapsed //
              << R"(,"idle_cpu_us":)" << Microseconds(idleTime).count() << "}" << std::endl;
}

} // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app("Plays the platform's services and consumers of a subject that connects as "
                     "the service does. Prints what it measured as one line of JSON. Exit status 1 "
                     "when a consumer did not get every message, in order and byte for byte.");
        Options options;
        declare(app, options);
        CLI11_PARSE(app, argc, argv);
        run(options);
    } catch (const std::exception& error) {
        std::cerr << "kaikla-load: void: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
