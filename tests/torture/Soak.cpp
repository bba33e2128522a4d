#include "platform/PlatformProtocol.hpp"
#include "tests/support/Consumer.hpp"
#include "tests/torture/Checks.hpp"
#include "tests/torture/Notifier.hpp"
#include "tests/torture/Service.hpp"
#include "tests/torture/SoakConsumer.hpp"
#include "tests/torture/SoakLoad.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <deque>
#include <list>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

/// How many notifications of each service may be on their way. The three together stay below the
/// thousand messages that a queue holds, so that nothing is dropped in front of the service and no
/// consumer's queue fills.
constexpr std::int64_t kWindow = 250;

/// Notifications on their way from one service: confirmed when a consumer has been told.
class InFlight {
public:
    void sent(bool told, std::int64_t number) {
        ++sentCount;
        if (told) {
            awaited.push_back({number, sentCount});
        }
    }
    void confirmUpTo(std::int64_t number) {
        for (; !awaited.empty() && awaited.front().number <= number; awaited.pop_front()) {
            confirmedCount = awaited.front().sentBefore;
        }
    }
    bool windowIsFull() const { return sentCount - confirmedCount >= kWindow; }
    bool allConfirmed() const { return awaited.empty(); }

private:
    struct Awaited {
        std::int64_t number;
        std::int64_t sentBefore;
    };
    std::deque<Awaited> awaited;
    std::int64_t sentCount = 0;
    std::int64_t confirmedCount = 0;
};

/// The service, its device and ten places for consumers, of whom the first never leaves.
class SoakDay {
public:
    SoakDay() : service(context, {.arguments = {}, .launcher = {}, .withoutStandardError = true}) {
        notifiers[SoakLoad::sessions].waitForSubscriptions(3);
        notifiers[SoakLoad::ports].waitForSubscriptions(1);
        notifiers[SoakLoad::ptp].waitForSubscriptions(2);
        // The state first: a consumer's first message has to be numbered.
        for (std::size_t source = 0; source < SoakLoad::sources; ++source) {
            send(load.next());
        }
        waitForDocument();
        for (InFlight& flight : inFlight) {
            flight.confirmUpTo(0);
        }
        for (std::size_t place = 0; place < kPlaces; ++place) {
            comeTo(place);
        }
    }

    void notifyOne() {
        const SoakLoad::Notification notification = load.next();
        while (inFlight[notification.source].windowIsFull()) {
            readAllWaiting();
        }
        send(notification);
    }

    /// One consumer leaves, and one comes where another has left before.
    void change() {
        const std::size_t place = 1 + generator() % (kPlaces - 1);
        if (!places[place]) {
            return;
        }
        leave(place);
        if (emptyPlace != 0) {
            comeTo(emptyPlace);
        }
        emptyPlace = place;
    }

    /// Waits until everything has arrived, and holds the document against the expected one: the one
    /// on request and the one that a new consumer gets.
    void compareDocuments() {
        while (std::any_of(inFlight.begin(), inFlight.end(),
                           [](const InFlight& flight) { return !flight.allConfirmed(); })) {
            readAllWaiting();
        }
        waitForDocument();
        Consumer visitor(context);
        require(service.addRemote(visitor.address()) == 0, "a consumer is registered");
        require(visitor.receive()["payload"] == load.document(),
                "a consumer that comes gets the document as it is");
        require(service.removeRemote(visitor.address()) == 0, "a consumer is removed");
    }

    void finish() {
        while (!leaving.empty()) {
            readAllWaiting();
        }
        compareDocuments();
    }

    Service& kaikla() { return service; }
    std::int64_t messages = 0;
    std::int64_t comings = 0;

private:
    static constexpr std::size_t kPlaces = 10;

    struct Leaving {
        std::unique_ptr<SoakConsumer> consumer;
        /// What had been told to everybody when it left, and has to arrive still.
        SoakLoad::Progress target;
    };

    void send(const SoakLoad::Notification& notification) {
        if (notification.source == SoakLoad::sessions && notification.told) {
            told.add(notification.message);
        }
        notifiers[notification.source].send(notification.kind, notification.payload);
        inFlight[notification.source].sent(notification.told, load.numbers()[notification.source]);
    }

    void comeTo(std::size_t place) {
        places[place] = std::make_unique<SoakConsumer>(context, told);
        require(service.addRemote(places[place]->address()) == 0, "a consumer is registered");
        ++comings;
    }

    void leave(std::size_t place) {
        const SoakLoad::Progress target = places[0]->progress();
        require(service.removeRemote(places[place]->address()) == 0, "a consumer is removed");
        leaving.push_back({std::move(places[place]), target});
    }

    void waitForDocument() {
        service.waitForDocument(
            [&](const Json::Value& document) { return document == load.document(); });
    }

    /// Reads what every consumer has got; waits for it when there is nothing.
    void readAllWaiting() {
        const int count = readAll();
        messages += count;
        if (count > 0) {
            return;
        }
        std::vector<zmq_pollitem_t> items;
        for (const auto& consumer : places) {
            if (consumer) {
                items.push_back(consumer->pollItem());
            }
        }
        for (const Leaving& consumer : leaving) {
            items.push_back(consumer.consumer->pollItem());
        }
        constexpr std::chrono::seconds kPatience{10};
        require(zmq::poll(items.data(), items.size(), kPatience) > 0,
                "what has been notified is told to consumers");
    }

    int readAll() {
        int count = 0;
        SoakLoad::Progress slowest = load.numbers();
        std::int64_t done = slowest[SoakLoad::sessions];
        for (const auto& consumer : places) {
            if (consumer) {
                count += consumer->readAll();
                heedSlower(slowest, consumer->progress());
                done = std::min(done, consumer->doneWithSessions());
            }
        }
        for (auto one = leaving.begin(); one != leaving.end();) {
            count += one->consumer->readAll();
            done = std::min(done, one->consumer->doneWithSessions());
            one = one->consumer->hasHeard(one->target) ? leaving.erase(one) : std::next(one);
        }
        for (std::size_t source = 0; source < SoakLoad::sources; ++source) {
            inFlight[source].confirmUpTo(slowest[source]);
        }
        told.forgetUpTo(done);
        return count;
    }

    static void heedSlower(SoakLoad::Progress& slowest, const SoakLoad::Progress& progress) {
        for (std::size_t source = 0; source < SoakLoad::sources; ++source) {
            if (progress[source] != SoakLoad::kNothing) {
                slowest[source] = std::min(slowest[source], progress[source]);
            }
        }
    }

    zmq::context_t context;
    Service service;
    std::array<Notifier, SoakLoad::sources> notifiers = {
        Notifier(context, platform_protocol::kSessionManagerEndpoint),
        Notifier(context, platform_protocol::kPtpManagementEndpoint),
        Notifier(context, platform_protocol::kSystemManagerEndpoint)};
    SoakLoad load;
    ToldSessions told;
    std::array<InFlight, SoakLoad::sources> inFlight;
    std::array<std::unique_ptr<SoakConsumer>, kPlaces> places;
    std::list<Leaving> leaving;
    /// The place left last; 0, the first one, before that.
    std::size_t emptyPlace = 0;
    std::mt19937 generator{7};
};

/// Resident memory in hundredths of the way. It swings with what is queued just then, so its growth
/// is the difference between the means of the second tenth and of the last one.
class MemoryWatch {
public:
    void sample(std::size_t bytes) { samples.push_back(static_cast<double>(bytes) / kMb); }

    double highest() const { return *std::max_element(samples.begin(), samples.end()); }
    double growth() const { return meanOfTenth(9) - meanOfTenth(1); }

private:
    double meanOfTenth(int tenth) const {
        const auto size = static_cast<std::ptrdiff_t>(samples.size());
        const auto first = samples.begin() + size * tenth / 10;
        const auto last = samples.begin() + size * (tenth + 1) / 10;
        return std::accumulate(first, last, 0.0) / static_cast<double>(last - first);
    }

    static constexpr double kMb = 1024.0 * 1024.0;
    std::vector<double> samples;
};

} // namespace

void soak(const Report& report, Form form) {
    const int notifications = form == Form::full ? 2'000'000 : 100'000;
    const int percent = notifications / 100;
    constexpr int kChangeEvery = 1000;
    constexpr int kComparisons = 20;
    SoakDay day;
    MemoryWatch memory;
    const auto start = Clock::now();
    for (int i = 1; i <= notifications; ++i) {
        day.notifyOne();
        if (i % kChangeEvery == 0) {
            day.change();
        }
        if (i % percent == 0) {
            memory.sample(day.kaikla().residentBytes());
        }
        if (i % (notifications / kComparisons) == 0) {
            day.compareDocuments();
        }
    }
    day.finish();
    const std::chrono::duration<double> taken = Clock::now() - start;

    report.figure("notifications", notifications);
    report.figure("consumers that came, at most ten at a time", day.comings);
    report.figure("messages that arrived, none lost or out of order", day.messages);
    report.figure("comparisons of the document, all equal", kComparisons + 1);
    report.figure("duration", taken.count(), "s");
    report.figure("resident memory, highest", memory.highest(), "MB");
    report.figure("growth from the second tenth to the last", memory.growth(), "MB");
#ifndef __SANITIZE_ADDRESS__ // The sanitizer keeps what has been freed.
    // What the allocator may keep more or less of. A short run is still filling its free lists.
    const double swingMb = form == Form::full ? 1.0 : 2.0;
    require(memory.growth() < swingMb, "memory does not grow after the first tenth");
#endif
    report.figure("stop", day.kaikla().stop().count(), "ms");
}
