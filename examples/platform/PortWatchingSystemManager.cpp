#include "NetworkPorts.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/api/SysmgrSubscriber.hpp"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>

namespace {
constexpr itimerspec kAtOnceAndThenEverySecond = {{1, 0}, {0, 1}};
} // namespace

/// A timer in place of a system manager: whenever it expires, the ports are read. The handler
/// compares them with what it knows, so an unchanged list costs nothing further.
struct SysmgrSubscriber::State {
    int timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);

    State() = default;
    ~State() { ::close(timer); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    State(State&&) = delete;
    State& operator=(State&&) = delete;
};

SysmgrSubscriber::SysmgrSubscriber() : state(std::make_unique<State>()) {}
SysmgrSubscriber::~SysmgrSubscriber() = default;

int SysmgrSubscriber::init(zmq::context_t& /*context*/) {
    return state->timer < 0 ? platform_protocol::kErrorSocket : 0;
}

int SysmgrSubscriber::subscribe(SysmgrPublisher::sysmgr_notifications_t kind) {
    if (kind != SysmgrPublisher::sysmgr_dynamic_information_update) {
        return 0;
    }
    return ::timerfd_settime(state->timer, 0, &kAtOnceAndThenEverySecond, nullptr) == 0
               ? 0
               : platform_protocol::kErrorSocket;
}

int SysmgrSubscriber::getPollItems(PollFds& pollFds) {
    return pollFds.addFd(state->timer, ZMQ_POLLIN);
}

bool SysmgrSubscriber::processEvent(const zmq_pollitem_t& item) {
    if (item.socket != nullptr || item.fd != state->timer) {
        return false;
    }
    std::uint64_t expirations = 0;
    if (::read(state->timer, &expirations, sizeof expirations) > 0) {
        SysParametersDynamic information;
        information.eths = readNetworkPorts();
        notifyDynamicInfoUpdate(information);
    }
    return true;
}
