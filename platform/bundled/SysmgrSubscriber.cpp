#include "platform/api/SysmgrSubscriber.hpp"

#include "platform/bundled/NotificationSocket.hpp"

namespace {

void dispatch(SysmgrSubscriber& subscriber, unsigned kind, Json::Value& payload) {
    switch (kind) {
    case SysmgrPublisher::sysmgr_stored_parameters_update:
        return (void)subscriber.notifyStoredParameterUpdate(payload);
    case SysmgrPublisher::sysmgr_dynamic_information_update:
        return deliver(subscriber, &SysmgrSubscriber::notifyDynamicInfoUpdate, payload);
    case SysmgrPublisher::sysmgr_reboot_request:
        return (void)subscriber.notifyRebootRequest(payload);
    case SysmgrPublisher::sysmgr_multicast_white_list_update:
        return (void)subscriber.notifyMulticastWhiteListUpdate(payload);
    default:
        return;
    }
}

} // namespace

struct SysmgrSubscriber::Impl {
    NotificationSocket socket{"system manager", platform_protocol::kSystemManagerEndpoint};
};

SysmgrSubscriber::SysmgrSubscriber() : impl(std::make_unique<Impl>()) {}
SysmgrSubscriber::~SysmgrSubscriber() = default;

int SysmgrSubscriber::init(zmq::context_t& context) {
    return impl->socket.connect(context);
}

int SysmgrSubscriber::subscribe(SysmgrPublisher::sysmgr_notifications_t kind) {
    return impl->socket.subscribe(kind);
}

int SysmgrSubscriber::getPollItems(PollFds& pollFds) {
    return impl->socket.addTo(pollFds);
}

bool SysmgrSubscriber::processEvent(const zmq_pollitem_t& item) {
    return impl->socket.process(
        item, [this](unsigned kind, Json::Value& payload) { dispatch(*this, kind, payload); });
}
