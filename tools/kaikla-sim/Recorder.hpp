#pragma once

#include "platform/zmq/NotificationSocket.hpp"
#include "tools/kaikla-sim/RecordingFile.hpp"
#include "tools/kaikla-sim/ScenarioLine.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <chrono>
#include <cstdint>
#include <list>
#include <optional>
#include <string>

namespace sim {

/// Subscribes to everything that a device's services publish and writes it as a scenario.
class Recorder {
public:
    /// The services may be absent. `file` outlives the recorder. Throws std::runtime_error when a
    /// socket cannot be made.
    Recorder(zmq::context_t& context, RecordingFile& file);

    /// Records until `stopDescriptor` becomes readable. A notification that a scenario cannot hold
    /// is skipped with one line in the log. Throws std::system_error when the file cannot be
    /// written.
    void run(int stopDescriptor);

    /// How many notifications have been written.
    std::uint64_t recorded() const { return count; }

private:
    using Clock = std::chrono::steady_clock;

    /// The next notification as a line; nothing when there is none or it has been skipped.
    std::optional<std::string> receiveLine(NotificationSocket& socket, Service service);
    /// Throws ScenarioMistake for a payload that a scenario cannot hold.
    std::string makeLine(const Kind& kind, const Json::Value& payload);

    RecordingFile& file;
    /// One a service, in the order of allServices().
    std::list<NotificationSocket> sockets;
    ScenarioLineDecoder check;
    Clock::time_point start = Clock::now();
    std::uint64_t count = 0;
};

} // namespace sim
