#include "platform/api/SysmgrSubscriber.hpp"

#include "platform/bundled/NotificationSocket.hpp"

namespace {

bool dispatch(SysmgrSubscriber& subscriber, unsigned kind, Json::Value& payload) {
    switch (kind) {
    case SysmgrPublisher::sysmgr_stored_parameters_update:
        subscriber.notifyStoredParameterUpdate(payload);
        return true;
    case SysmgrPublisher::sysmgr_dynamic_information_update: {
        SysParametersDynamic information;
        information.Deserialize(payload);
        subscriber.notifyDynamicInfoUpdate(information);
        return true;
    }
    case SysmgrPublisher::sysmgr_reboot_request:
        subscriber.notifyRebootRequest(payload);
        return true;
    case SysmgrPublisher::sysmgr_multicast_white_list_update:
        subscriber.notifyMulticastWhiteListUpdate(payload);
        return true;
    default:
        return false;
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
    if (!impl->socket.owns(item)) {
        return false;
    }
    impl->socket.receive(
        [this](unsigned kind, Json::Value& payload) { return dispatch(*this, kind, payload); });
    return true;
}
