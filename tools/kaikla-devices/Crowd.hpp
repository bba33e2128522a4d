#pragma once

#include "tools/kaikla-devices/PlayedDevice.hpp"

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

namespace devices {

/// Devices that share one connection to a broker.
class Crowd {
public:
    /// Each device changes `rate` times a second.
    Crowd(boost::asio::io_context& loop, const gateway::Broker& broker, const std::string& clientId,
          std::vector<PlayedDevice> played, double rate);

    /// Takes every retained topic away, where the broker is there; then calls `done`.
    void stop(std::function<void()> done);

    /// Changes that the broker was too slow for.
    std::uint64_t leftOut() const { return omitted; }

private:
    using Clock = std::chrono::steady_clock;

    void tick();
    void play(Clock::time_point now);
    void add(Messages messages);
    void pump();

    std::vector<PlayedDevice> crowd;
    double rate;
    std::deque<gateway::MqttMessage> outbox;
    std::uint64_t omitted = 0;
    std::function<void()> stopped;
    boost::asio::basic_waitable_timer<Clock> timer;
    Clock::time_point begin;
    std::uint64_t changes = 0;
    std::uint64_t summaries = 0;
    gateway::MqttClient client;
};

} // namespace devices
