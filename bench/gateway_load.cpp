// Plays a device whose sessions change at a steady rate, and everybody who is told: one plain
// consumer of the service and streams of the gateway, or subscribers of a broker. Prints how long
// it took to reach them.

#include "bench/Peers.hpp"
#include "bench/Workload.hpp"

#include <CLI/CLI.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <iterator>
#include <list>
#include <stdexcept>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

struct Options {
    std::size_t streams = 0;
    std::size_t stalled = 0;
    unsigned rate = 20;
    unsigned seconds = 3;
    std::uint16_t gatewayPort = 8580;
    std::uint16_t brokerPort = 0;
};

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

/// When each event was sent, written by one thread and read by another.
struct Timeline {
    explicit Timeline(const Options& options)
        : measuredFrom(options.rate), sent(std::size_t{options.rate} * (1 + options.seconds)) {}

    /// The events of the first second warm everything up.
    std::size_t measuredFrom;
    std::vector<std::atomic<Clock::time_point>> sent;
};

/// What reached one kind of receivers.
struct Outcome {
    std::vector<double> latenciesMs;
    std::uint64_t lost = 0;

    double percentile(double part) {
        if (latenciesMs.empty()) {
            return 0;
        }
        const auto place =
            static_cast<std::ptrdiff_t>(part * static_cast<double>(latenciesMs.size() - 1));
        std::nth_element(latenciesMs.begin(), latenciesMs.begin() + place, latenciesMs.end());
        return latenciesMs[static_cast<std::size_t>(place)];
    }
};

/// One connection over which events come, each with its number and in order.
class Receiver {
public:
    Receiver(int itsDescriptor, const Timeline& events, Outcome& commonOutcome)
        : descriptor(itsDescriptor), timeline(events), outcome(commonOutcome) {}

    void receive() {
        thread_local std::vector<char> bytes(std::size_t{256} * 1024);
        const ssize_t count = ::recv(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EAGAIN)) {
            fail("a receiver was closed");
        }
        constexpr std::size_t kDigits = 10;
        constexpr std::size_t kLength = Workload::kBeforeNumber.size() + kDigits;
        text.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        for (auto at = text.find(Workload::kBeforeNumber);
             at != std::string::npos && at + kLength <= text.size();
             at = text.find(Workload::kBeforeNumber, at + kLength)) {
            take(std::stoull(text.substr(at + kLength - kDigits, kDigits)) -
                 Workload::kFirstNumber);
        }
        text.erase(0, text.size() - std::min(text.size(), kLength - 1));
    }

    /// Events that have not come yet.
    std::uint64_t missing() const { return timeline.sent.size() - next; }

    const int descriptor;

private:
    void take(std::uint64_t event) {
        // A document also holds what has come before.
        if (event < next || event >= timeline.sent.size()) {
            return;
        }
        outcome.lost += event - next;
        next = event + 1;
        if (event >= timeline.measuredFrom) {
            outcome.latenciesMs.push_back(
                Milliseconds(Clock::now() - timeline.sent[event].load()).count());
        }
    }

    const Timeline& timeline;
    Outcome& outcome;
    std::uint64_t next = 0;
    std::string text;
};

/// A client of the gateway's events. A gateway takes few from one address.
int openStream(const Options& options, std::size_t number, bool reads) {
    constexpr std::uint32_t kFirstAddress = 0x7f000101; // 127.0.1.1
    constexpr std::size_t kFromOneAddress = 60;
    constexpr int kSmallBuffer = 4096;
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (!reads) {
        (void)::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &kSmallBuffer, sizeof kSmallBuffer);
    }
    sockaddr_in from{};
    from.sin_family = AF_INET;
    from.sin_addr.s_addr =
        htonl(kFirstAddress + static_cast<std::uint32_t>(number / kFromOneAddress));
    sockaddr_in to = from;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(options.gatewayPort);
    constexpr std::string_view kRequest = "GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n";
    std::string answer("HTTP/1.1 ???");
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&from), sizeof from) != 0 ||
        ::connect(descriptor, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0 ||
        ::send(descriptor, kRequest.data(), kRequest.size(), 0) < 0 ||
        ::recv(descriptor, answer.data(), answer.size(), MSG_WAITALL) < 0 ||
        answer != "HTTP/1.1 200") {
        fail("a stream of the gateway, which answered " + answer);
    }
    return descriptor;
}

/// Those that read. They stand for other machines: everything else on this one comes first.
class Crowd {
public:
    Crowd(const Options& options, const Timeline& timeline, const std::vector<int>& subscribers) {
        for (std::size_t i = 0; i < options.streams; ++i) {
            const int descriptor =
                options.brokerPort != 0 ? subscribers[i] : openStream(options, i, true);
            receivers.emplace_back(descriptor, timeline, outcome);
            epoll_event event{.events = EPOLLIN, .data = {.ptr = &receivers.back()}};
            if (::epoll_ctl(poll, EPOLL_CTL_ADD, descriptor, &event) != 0) {
                fail("epoll_ctl");
            }
        }
    }

    void run(const std::atomic<bool>& ended) {
        constexpr int kLower = 10;
        const auto self = static_cast<id_t>(::gettid());
        (void)::setpriority(PRIO_PROCESS, self, ::getpriority(PRIO_PROCESS, self) + kLower);
        std::vector<epoll_event> ready(64);
        while (!ended) {
            constexpr int kLookMs = 10;
            const int count =
                ::epoll_wait(poll, ready.data(), static_cast<int>(ready.size()), kLookMs);
            for (int i = 0; i < count; ++i) {
                static_cast<Receiver*>(ready[static_cast<std::size_t>(i)].data.ptr)->receive();
            }
        }
        for (const Receiver& receiver : receivers) {
            outcome.lost += receiver.missing();
        }
    }

    Outcome outcome;

private:
    const int poll = ::epoll_create1(EPOLL_CLOEXEC);
    std::list<Receiver> receivers;
};

/// Clients that never read. Each comes back after it has been closed.
void stall(const Options& options, const std::atomic<bool>& ended) {
    constexpr std::chrono::seconds kStay{12};
    std::vector<int> descriptors;
    while (descriptors.size() < options.stalled) {
        descriptors.push_back(openStream(options, options.streams + descriptors.size(), false));
    }
    for (std::size_t turn = 0; !ended && !descriptors.empty(); ++turn) {
        std::this_thread::sleep_for(kStay / descriptors.size());
        const std::size_t place = turn % descriptors.size();
        ::close(descriptors[place]);
        descriptors[place] = openStream(options, options.streams + place, false);
    }
}

void receiveUntil(Clock::time_point end, Receiver* consumer) {
    for (auto left = end - Clock::now(); left.count() > 0; left = end - Clock::now()) {
        pollfd item{consumer == nullptr ? -1 : consumer->descriptor, POLLIN, 0};
        const timespec wait{left / std::chrono::seconds(1), left.count() % std::nano::den};
        if (::ppoll(&item, 1, &wait, nullptr) > 0 && consumer != nullptr) {
            consumer->receive();
        }
    }
}

/// Sends every event when it is due, and to the end receives what reaches the plain consumer.
template <typename Append>
void play(const Options& options, int source, Timeline& timeline, Receiver* consumer,
          const Append& append) {
    const auto period = std::chrono::nanoseconds(std::chrono::seconds(1)) / options.rate;
    const Clock::time_point start = Clock::now();
    std::string bytes;
    for (std::uint64_t event = 0; event < timeline.sent.size(); ++event) {
        receiveUntil(start + event * period, consumer);
        if (event == timeline.measuredFrom) {
            std::cout << "measuring" << std::endl;
        }
        bytes.clear();
        append(event, bytes);
        timeline.sent[event] = Clock::now();
        if (::send(source, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
            fail("sending");
        }
    }
    constexpr std::chrono::seconds kOnTheWay{1};
    receiveUntil(Clock::now() + kOnTheWay, consumer);
}

void run(const Options& options) {
    const bool toBroker = options.brokerPort != 0;
    const std::unique_ptr<Peers> peers =
        toBroker ? connectToBroker(options.brokerPort, options.streams) : playPlatform(1);
    Timeline timeline(options);
    Outcome direct;
    Receiver consumer(peers->consumers.front(), timeline, direct);
    Crowd crowd(options, timeline, peers->consumers);
    std::atomic<bool> ended = false;
    std::thread reading([&] { crowd.run(ended); });
    std::thread stalling([&] { stall(options, ended); });
    std::string event;
    if (toBroker) {
        // What the broker hands on: the text of standard input, with a place for the number.
        const NumberedText packet(peers->delivery({std::istreambuf_iterator<char>(std::cin), {}}));
        play(options, peers->sessionSource, timeline, nullptr,
             [&](std::uint64_t number, std::string& bytes) { packet.appendTo(bytes, number, 0); });
    } else {
        constexpr unsigned kStreamsOfSession = 4;
        constexpr std::uint64_t kSessions = 8;
        Workload workload = Workload::sessionStatuses(*peers, kStreamsOfSession, kSessions,
                                                      Workload::Order::cyclic);
        play(options, peers->sessionSource, timeline, &consumer,
             [&](std::uint64_t number, std::string& bytes) {
                 workload.produce(number, bytes, event);
             });
        direct.lost += consumer.missing();
    }
    ended = true;
    reading.join();
    stalling.join();
    constexpr double kMedian = 0.5;
    constexpr double kP99 = 0.99;
    std::cout << R"({"consumer_p99_ms":)" << direct.percentile(kP99)         //
              << R"(,"stream_p50_ms":)" << crowd.outcome.percentile(kMedian) //
              << R"(,"stream_p99_ms":)" << crowd.outcome.percentile(kP99)    //
              << R"(,"deliveries":)" << crowd.outcome.latenciesMs.size()     //
              << R"(,"lost":)" << direct.lost + crowd.outcome.lost << "}" << std::endl;
}

} // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app(
            "Plays a device and those that are told about it; says on standard output when "
            "it begins to measure, then what it measured, as a line of JSON.");
        Options options;
        const CLI::Range some(1U, 1'000'000U);
        app.add_option("--streams", options.streams, "clients that read (0)");
        app.add_option("--stalled", options.stalled, "clients of the gateway that do not (0)");
        app.add_option("--rate", options.rate, "events a second (20)")->check(some);
        app.add_option("--seconds", options.seconds, "how long to measure (3)")->check(some);
        app.add_option("--gateway", options.gatewayPort, "port of the gateway (8580)");
        app.add_option("--broker", options.brokerPort,
                       "instead of service and gateway, a broker on this port");
        CLI11_PARSE(app, argc, argv);
        run(options);
    } catch (const std::exception& error) {
        std::cerr << "kaikla-gateway-load: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
