#include "tools/kaikla-devices/Crowd.hpp"

#include <iterator>
#include <utility>

namespace devices {
namespace {

constexpr std::chrono::milliseconds kTick{10};
constexpr double kSummaryIntervalS = 10;
/// Beyond it changes are left out, so that none is told late.
constexpr std::size_t kMaxWaiting = 20'000;

} // namespace

Crowd::Crowd(boost::asio::io_context& loop, const gateway::Broker& broker,
             const std::string& clientId, std::vector<PlayedDevice> played, double changeRate)
    : crowd(std::move(played)), rate(changeRate), timer(loop),
      client(loop, broker, clientId, {},
             {[this] {
                  begin = Clock::now();
                  changes = summaries = 0;
                  for (const PlayedDevice& device : crowd) {
                      add(device.everything());
                  }
              },
              [this] {
                  outbox.clear();
                  if (stopped) {
                      std::exchange(stopped, nullptr)();
                  }
              },
              [](const std::string&, bool) {}, [](const gateway::MqttMessage&) {},
              [this] { pump(); }}) {
    timer.expires_after(kTick);
    tick();
}

void Crowd::tick() {
    timer.async_wait([this](const boost::system::error_code& error) {
        if (error) {
            return;
        }
        if (client.connected() && !stopped) {
            play(Clock::now());
        }
        timer.expires_after(kTick);
        tick();
    });
}

/// The devices take turns, so that they are spread evenly over time.
void Crowd::play(Clock::time_point now) {
    const double seconds = std::chrono::duration<double>(now - begin).count();
    const auto size = static_cast<double>(crowd.size());
    const auto due = static_cast<std::uint64_t>(seconds * rate * size);
    for (; changes < due; ++changes) {
        Messages messages = crowd[static_cast<std::size_t>(changes % crowd.size())].change();
        if (outbox.size() < kMaxWaiting) {
            add(std::move(messages));
        } else {
            ++omitted;
        }
    }
    const auto dueSummaries = static_cast<std::uint64_t>(seconds / kSummaryIntervalS * size);
    for (; summaries < dueSummaries; ++summaries) {
        add({crowd[static_cast<std::size_t>(summaries % crowd.size())].summary()});
    }
    pump();
}

void Crowd::add(Messages messages) {
    outbox.insert(outbox.end(), std::move_iterator(messages.begin()),
                  std::move_iterator(messages.end()));
}

void Crowd::pump() {
    while (!outbox.empty() && client.hasRoom()) {
        client.publish(std::move(outbox.front()));
        outbox.pop_front();
    }
    if (stopped && outbox.empty()) {
        client.disconnect(std::exchange(stopped, nullptr));
    }
}

void Crowd::stop(std::function<void()> done) {
    if (!client.connected()) {
        done();
        return;
    }
    stopped = std::move(done);
    outbox.clear();
    for (const PlayedDevice& device : crowd) {
        add(device.nothing());
    }
    pump();
}

} // namespace devices
