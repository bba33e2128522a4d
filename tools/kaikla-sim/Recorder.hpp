#pragma once

#include "tools/kaikla-sim/NotificationReceiver.hpp"
#include "tools/kaikla-sim/RecordingFile.hpp"
#include "tools/kaikla-sim/ScenarioLine.hpp"

#include <zmq.hpp>

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <list>
#include <optional>
#include <string>

namespace sim {

/// Subscribes to everything that a device's services publish and writes it as a scenario.
class Recorder {
public:
    /// The services may be absent. `file` and `report` outlive the recorder. Throws zmq::error_t
    /// when a socket cannot be made.
    Recorder(zmq::context_t& context, RecordingFile& file, std::ostream& report);

    /// Records until `stopDescriptor` becomes readable. A notification that a scenario cannot hold
    /// is skipped, with one line to `report` that says why. Throws std::system_error when the file
    /// cannot be written.
    void run(int stopDescriptor);

    /// How many notifications have been written.
    std::uint64_t recorded() const { return count; }

private:
    using Clock = std::chrono::steady_clock;

    /// Throws ScenarioMistake for what a scenario cannot hold.
    std::string makeLine(Notification notification);
    /// The next notification as a line; nothing when there is none or it has been skipped.
    std::optional<std::string> receiveLine(NotificationReceiver& receiver, const char* serviceName);

    RecordingFile& file;
    std::ostream& report;
    /// One a service, in the order of allServices().
    std::list<NotificationReceiver> receivers;
    ScenarioLineDecoder check;
    Clock::time_point start = Clock::now();
    std::uint64_t count = 0;
};

} // namespace sim
