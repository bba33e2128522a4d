// The load generator: plays the platform's services and any number of consumers against whatever
// takes their place between them, and prints what it measured as one line of JSON.

#include "bench/load/Exchange.hpp"
#include "bench/load/Peers.hpp"
#include "bench/load/Workload.hpp"

#include <json/writer.h>

#include <getopt.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <functional>
#include <iostream>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using std::chrono::duration;
using std::chrono::duration_cast;
using std::chrono::nanoseconds;
using Seconds = duration<double>;
using Microseconds = duration<double, std::micro>;

constexpr const char* kUsage = R"(usage: kaikla-load [options]

Sends notifications to a subject that listens as the service does (start it first, or within ten
seconds), receives what it publishes, and prints one line of JSON. A run in which any consumer did
not get every message, in order and byte for byte, is void: exit status 1.

  --consumers N     consumers to register (1)
  --streams N       streams of a session (4)
  --sessions N      sessions that the document holds before anything is measured (8)
  --no-alarms       sessions and streams without alarms
  --documents       measure PTP statuses, each answered with the whole document, instead of
                    session statuses
  --random          session statuses of the sessions at random instead of in turn
  --window N        events on their way at a time when throughput is measured (64)
  --seconds S       how long to measure throughput (1)
  --events N        instead of measuring, send exactly N events at that window (for a profiler)
  --latency S       how long to measure latency, at a window of 1 (0)
  --warm-up S       the same load before, not measured (0.1)
  --broker PORT     the subject is an MQTT broker on this port of 127.0.0.1
  --pid PID         the subject's process, for its CPU time (this one)
  --hold            when done, stay connected until standard input ends
)";

struct Options {
    std::size_t consumers = 1;
    std::uint64_t sessions = 8;
    SessionShape shape;
    bool documents = false;
    Workload::Order order = Workload::Order::cyclic;
    std::size_t window = 64;
    std::uint64_t events = 0;
    double seconds = 1;
    double latencySeconds = 0;
    double warmUpSeconds = 0.1;
    std::uint16_t brokerPort = 0;
    pid_t subject = ::getpid();
    bool hold = false;
};

template <typename Number>
Number parse(const char* text) {
    Number number{};
    const std::string_view digits(text);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        throw std::invalid_argument(std::string("not a number: ") + text);
    }
    return number;
}

/// One option of the command line and what it does.
struct Choice {
    const char* name;
    int argument;
    std::function<void(Options&, const char* text)> apply;
};

const std::vector<Choice>& choices() {
    static const std::vector<Choice> table = {
        {"consumers", required_argument,
         [](Options& o, const char* text) { o.consumers = parse<std::size_t>(text); }},
        {"streams", required_argument,
         [](Options& o, const char* text) { o.shape.streams = parse<unsigned>(text); }},
        {"sessions", required_argument,
         [](Options& o, const char* text) { o.sessions = parse<std::uint64_t>(text); }},
        {"no-alarms", no_argument, [](Options& o, const char*) { o.shape.alarms = false; }},
        {"documents", no_argument, [](Options& o, const char*) { o.documents = true; }},
        {"random", no_argument, [](Options& o, const char*) { o.order = Workload::Order::random; }},
        {"window", required_argument,
         [](Options& o, const char* text) { o.window = parse<std::size_t>(text); }},
        {"events", required_argument,
         [](Options& o, const char* text) { o.events = parse<std::uint64_t>(text); }},
        {"seconds", required_argument,
         [](Options& o, const char* text) { o.seconds = parse<double>(text); }},
        {"latency", required_argument,
         [](Options& o, const char* text) { o.latencySeconds = parse<double>(text); }},
        {"warm-up", required_argument,
         [](Options& o, const char* text) { o.warmUpSeconds = parse<double>(text); }},
        {"broker", required_argument,
         [](Options& o, const char* text) { o.brokerPort = parse<std::uint16_t>(text); }},
        {"pid", required_argument,
         [](Options& o, const char* text) { o.subject = parse<pid_t>(text); }},
        {"hold", no_argument, [](Options& o, const char*) { o.hold = true; }},
    };
    return table;
}

Options readOptions(int argc, char** argv) {
    std::vector<option> names;
    for (const Choice& choice : choices()) {
        names.push_back({choice.name, choice.argument, nullptr, static_cast<int>(names.size())});
    }
    names.push_back({});
    Options options;
    for (int place = 0; (place = ::getopt_long(argc, argv, "", names.data(), nullptr)) != -1;) {
        if (place == '?') {
            throw std::invalid_argument("see the usage");
        }
        choices().at(static_cast<std::size_t>(place)).apply(options, ::optarg);
    }
    if (options.consumers == 0 || options.sessions == 0 || options.window == 0) {
        throw std::invalid_argument("consumers, sessions and window begin at 1");
    }
    return options;
}

/// Each consumer is a connection; the limit that shells set is for interactive programs.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        (void)::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

/// CPU time of a process, all its threads together.
nanoseconds cpuTimeOf(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("there is no process " + std::to_string(process));
    }
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

double percentile(std::vector<nanoseconds> values, double part) {
    if (values.empty()) {
        return 0;
    }
    const auto place = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + place, values.end());
    return Microseconds(values[static_cast<std::size_t>(place)]).count();
}

nanoseconds toNanoseconds(double seconds) {
    return duration_cast<nanoseconds>(Seconds(seconds));
}

Json::Value measure(const Options& options, const Peers& peers, const Framing& framing) {
    Exchange exchange(peers, options.window);
    // Event 0 has put the first session there already.
    Workload population = Workload::sessionStatuses(options.shape, options.sessions,
                                                    Workload::Order::cyclic, framing);
    exchange.runThrough(options.sessions - 1, options.window, population, peers.sessionSource());

    Workload workload =
        options.documents
            ? Workload::documents(options.shape, options.sessions, framing)
            : Workload::sessionStatuses(options.shape, options.sessions, options.order, framing);
    const TcpSocket& source = options.documents ? peers.ptpSource() : peers.sessionSource();
    if (options.events > 0) {
        exchange.runThrough(options.events, options.window, workload, source);
        exchange.expectSilence();
        return {};
    }
    const auto runFor = [&](double seconds, std::size_t window) {
        return exchange.runFor(toNanoseconds(seconds), window, workload, source);
    };

    runFor(options.warmUpSeconds, options.window);
    const nanoseconds subjectBefore = cpuTimeOf(options.subject);
    const nanoseconds ownBefore = cpuTimeOf(::getpid());
    const Exchange::Outcome throughput = runFor(options.seconds, options.window);
    const nanoseconds subjectTime = cpuTimeOf(options.subject) - subjectBefore;
    const nanoseconds ownTime = cpuTimeOf(::getpid()) - ownBefore;
    exchange.drain(source);
    const Exchange::Outcome latency = runFor(options.latencySeconds, 1);
    exchange.drain(source);
    exchange.expectSilence();

    const double elapsed = Seconds(throughput.elapsed).count();
    const auto deliveries = static_cast<double>(throughput.deliveries);
    const double events = deliveries / static_cast<double>(options.consumers);
    Json::Value result;
    result["message_bytes"] = Json::UInt64{workload.deliveryBytes()};
    result["events_per_second"] = events / elapsed;
    result["deliveries_per_second"] = deliveries / elapsed;
    result["latency_samples"] = Json::UInt64{latency.latencies.size()};
    result["latency_p50_us"] = percentile(latency.latencies, 0.5);
    result["latency_p99_us"] = percentile(latency.latencies, 0.99);
    result["subject_cpu_us_per_event"] = Microseconds(subjectTime).count() / events;
    result["load_cpu_us_per_event"] = Microseconds(ownTime).count() / events;
    result["load_cores"] = Seconds(ownTime).count() / elapsed;
    return result;
}

void print(const Json::Value& result) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["precision"] = 6;
    std::cout << Json::writeString(builder, result) << std::endl;
}

void run(const Options& options) {
    const bool toBroker = options.brokerPort != 0;
    const Framing framing = toBroker ? brokerFraming() : PlatformPeers::framing();
    Workload first = Workload::sessionStatuses(options.shape, options.sessions,
                                               Workload::Order::cyclic, framing);
    std::optional<PlatformPeers> platform;
    const Peers peers = toBroker ? connectToBroker(options.brokerPort, options.consumers, first)
                                 : platform.emplace().connect(options.consumers, first);
    print(measure(options, peers, framing));
    if (options.hold) {
        std::cin.ignore(std::numeric_limits<std::streamsize>::max());
    }
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    try {
        options = readOptions(argc, argv);
    } catch (const std::invalid_argument& error) {
        std::cerr << "kaikla-load: " << error.what() << "\n" << kUsage;
        return 2;
    }
    raiseDescriptorLimit();
    try {
        run(options);
    } catch (const std::exception& error) {
        std::cerr << "kaikla-load: void: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
