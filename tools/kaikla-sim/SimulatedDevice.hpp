#pragma once

#include "tools/kaikla-sim/NmosNode.hpp"
#include "tools/kaikla-sim/NotificationPublisher.hpp"
#include "tools/kaikla-sim/Scenario.hpp"
#include "tools/process/StopSignals.hpp"

#include <zmq.hpp>

#include <chrono>
#include <iosfwd>
#include <vector>

namespace sim {

struct PlayOptions {
    /// Above 0; 2 plays in half the time.
    double speed = 1;
    /// Begin again when the scenario has ended.
    bool loop = false;
    /// Return when the scenario has ended instead of staying as the device that it has become.
    bool exitAtEnd = false;
};

/// The services around kaikla, played from a scenario: session manager, system manager, PTP
/// management service and NMOS node.
class SimulatedDevice {
public:
    /// Binds every endpoint; throws std::runtime_error with a sentence for the user when one is
    /// taken. `scenario` outlives the device.
    SimulatedDevice(zmq::context_t& context, const Scenario& scenario);

    /// Plays until a signal arrives. Writes one line to `report` when everybody can connect, and
    /// one each time the scenario has been played.
    void run(const PlayOptions& options, const StopSignals& stop, std::ostream& report);

private:
    void play(const ScenarioEvent& event);
    void waitAndAnswer(std::chrono::milliseconds limit, const StopSignals& stop);

    const Scenario& scenario;
    /// Bound first: a subscriber may ask the node as soon as it has a notification.
    NmosNode nmosNode;
    /// One a service, in the order of allServices().
    std::vector<NotificationPublisher> publishers;
};

} // namespace sim
