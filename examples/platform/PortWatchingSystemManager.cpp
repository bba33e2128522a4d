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
struct SysmgrSubscriber::Impl {
    int timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);

    Impl() = default;
    ~Impl() { ::close(timer); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    Impl(Impl&&) = delete;
    Impl& operator=(Impl&&) = delete;
};

SysmgrSubscriber::SysmgrSubscriber() : impl(std::make_unique<Impl>()) {}
SysmgrSubscriber::~SysmgrSubscriber() = default;

int SysmgrSubscriber::init(zmq::context_t& /*context*/) {
    return impl->timer < 0 ? platform_protocol::kErrorSocket : 0;
}

int SysmgrSubscriber::subscribe(SysmgrPublisher::sysmgr_notifications_t kind) {
    if (kind != SysmgrPublisher::sysmgr_dynamic_information_update) {
        return 0;
    }
    return ::timerfd_settime(impl->timer, 0, &kAtOnceAndThenEverySecond, nullptr) == 0
               ? 0
               : platform_protocol::kErrorSocket;
}

int SysmgrSubscriber::getPollItems(PollFds& pollFds) {
    return pollFds.addFd(impl->timer, ZMQ_POLLIN);
}

bool SysmgrSubscriber::processEvent(const zmq_pollitem_t& item) {
    if (item.socket != nullptr || item.fd != impl->timer) {
        return false;
    }
    std::uint64_t expirations = 0;
    if (::read(impl->timer, &expirations, sizeof expirations) > 0) {
        SysParametersDynamic information;
        information.eths = readNetworkPorts();
        notifyDynamicInfoUpdate(information);
    }
    return true;
}
