#include "tools/kaiklactl/Reachability.hpp"

#include "tools/kaiklactl/ConnectionMonitor.hpp"
#include "tools/kaiklactl/Failure.hpp"
#include "tools/kaiklactl/Waiting.hpp"

#include <array>

namespace kaiklactl {

Reachability tryConnecting(zmq::context_t& context, const std::string& address,
                           std::chrono::milliseconds limit, StopSignals& stop) {
    const auto deadline = Clock::now() + limit;
    zmq::socket_t socket(context, zmq::socket_type::push);
    socket.set(zmq::sockopt::linger, 0);
    ConnectionMonitor monitor(context, socket);
    try {
        socket.connect(address);
    } catch (const zmq::error_t&) {
        return Reachability::invalid;
    }
    Reachability found = Reachability::nobody;
    std::array<zmq_pollitem_t, 2> items = {monitor.pollItem(), pollItem(stop)};
    while (Clock::now() < deadline) {
        waitFor(items, deadline);
        if (const int signal = stop.take(); signal != 0) {
            throw Interrupted{signal};
        }
        switch (monitor.take()) {
        case ConnectionMonitor::Event::none:
            break;
        case ConnectionMonitor::Event::accepted:
            found = Reachability::stranger;
            break;
        case ConnectionMonitor::Event::connected:
            return Reachability::consumer;
        case ConnectionMonitor::Event::refused:
        case ConnectionMonitor::Event::disconnected:
            return found;
        }
    }
    return found;
}

} // namespace kaiklactl
