#pragma once

#include "platform/records/JsonText.hpp"
#include "tools/kaikla-sim/Kinds.hpp"
#include "tools/kaikla-sim/ScenarioLine.hpp"
#include "tools/process/StopSignals.hpp"

#include <zmq.hpp>

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace sim {

/// Subscribes to everything that a device's services publish and writes it as a scenario.
class Recorder {
public:
    /// The services may be absent. `output`, which people call `outputName`, and `report` outlive
    /// the recorder. Throws zmq::error_t when a socket cannot be made.
    Recorder(zmq::context_t& context, std::ostream& output, std::string outputName,
             std::ostream& report);

    /// Records until a signal arrives; each line is written as soon as it comes. A notification
    /// that a scenario cannot hold is skipped, with one line to `report` that says why. Throws
    /// std::runtime_error when the output cannot be written.
    void run(const StopSignals& stop);

    /// How many notifications have been written.
    std::uint64_t recorded() const { return count; }

private:
    using Clock = std::chrono::steady_clock;

    void receive(const ServiceInfo& service, zmq::socket_t& socket);
    /// The notification as a line. Throws NotPlayable for what a scenario cannot hold.
    std::string lineOf(Service service, const std::vector<zmq::message_t>& frames);
    void write(const std::string& line);

    std::ostream& output;
    std::string outputName;
    std::ostream& report;
    /// One a service, in the order of allServices().
    std::vector<zmq::socket_t> sockets;
    JsonDecoder decoder;
    ScenarioLineDecoder lineDecoder;
    Clock::time_point start = Clock::now();
    std::uint64_t count = 0;
};

} // namespace sim
