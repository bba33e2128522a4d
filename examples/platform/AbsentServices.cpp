#include "platform/api/AvmgrSubscriber.hpp"
#include "platform/api/ZatPmcSubscriber.hpp"

// There is neither a session manager nor a PTP management service: subscribing succeeds, nothing is
// ever notified, and no poll item is theirs.

struct AvmgrSubscriber::Impl {};
AvmgrSubscriber::AvmgrSubscriber() = default;
AvmgrSubscriber::~AvmgrSubscriber() = default;
int AvmgrSubscriber::init(zmq::context_t& /*context*/, PollFds& /*pollFds*/) {
    return 0;
}
int AvmgrSubscriber::subscribe(AvmgrPublisher::avmgr_notifications_t /*kind*/) {
    return 0;
}
bool AvmgrSubscriber::processEvent(const zmq_pollitem_t& /*item*/) {
    return false;
}

struct ZatPmcSubscriber::Impl {};
ZatPmcSubscriber::ZatPmcSubscriber() = default;
ZatPmcSubscriber::~ZatPmcSubscriber() = default;
int ZatPmcSubscriber::init(zmq::context_t& /*context*/, PollFds& /*pollFds*/) {
    return 0;
}
int ZatPmcSubscriber::subscribeAll() {
    return 0;
}
bool ZatPmcSubscriber::processEvent(const zmq_pollitem_t& /*item*/) {
    return false;
}
