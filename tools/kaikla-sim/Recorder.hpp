#pragma once

#include "tools/kaikla-sim/NotificationReceiver.hpp"
#include "tools/kaikla-sim/RecordingFile.hpp"
#include "tools/kaikla-sim/ScenarioLine.hpp"

#include <zmq.hpp>

#include <chrono>
#include <cstdint>
#include <list>
#include <string>

namespace sim {

/// Subscribes to everything that a device's services publish and writes it as a scenario.
class Recorder {
public:
    /// The services may be absent. `file` outlives the recorder. Throws zmq::error_t when a socket
    /// cannot be made.
    Recorder(zmq::context_t& context, RecordingFile& file);

    /// Records until `stopDescriptor` becomes readable. A notification that a scenario cannot hold
    /// is skipped with one line in the log. Throws std::system_error when the file cannot be
    /// written.
    void run(int stopDescriptor);

    /// How many notifications have been written.
    std::uint64_t recorded() const { return count; }

private:
    using Clock = std::chrono::steady_clock;

    void record(NotificationReceiver& receiver, int stopDescriptor);
    /// Throws ScenarioMistake for what a scenario cannot hold.
    std::string makeLine(Notification notification);

    RecordingFile& file;
    /// One a service.
    std::list<NotificationReceiver> receivers;
    ScenarioLineDecoder check;
    Clock::time_point start = Clock::now();
    std::uint64_t count = 0;
};

} // namespace sim
