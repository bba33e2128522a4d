#include "platform/api/SysmgrSubscriber.hpp"

#include "platform/zmq/NotificationSocket.hpp"

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

struct SysmgrSubscriber::State {
    NotificationSocket socket{"system manager", platform_protocol::kSystemManagerEndpoint};
};

SysmgrSubscriber::SysmgrSubscriber() : state(std::make_unique<State>()) {}
SysmgrSubscriber::~SysmgrSubscriber() = default;

int SysmgrSubscriber::init(zmq::context_t& context) {
    return state->socket.connect(context);
}

int SysmgrSubscriber::subscribe(SysmgrPublisher::sysmgr_notifications_t kind) {
    return state->socket.subscribe(kind);
}

int SysmgrSubscriber::getPollItems(PollFds& pollFds) {
    return state->socket.addTo(pollFds);
}

bool SysmgrSubscriber::processEvent(const zmq_pollitem_t& item) {
    if (!state->socket.owns(item)) {
        return false;
    }
    state->socket.receive(
        [this](unsigned kind, Json::Value& payload) { return dispatch(*this, kind, payload); });
    return true;
}
