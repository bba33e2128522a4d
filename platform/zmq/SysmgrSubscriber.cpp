#include "platform/api/SysmgrSubscriber.hpp"

#include "platform/zmq/NotificationSocket.hpp"

SysmgrSubscriber::SysmgrSubscriber()
    : socket(std::make_unique<NotificationSocket>("system manager",
                                                  platform_protocol::kSystemManagerEndpoint)) {}
SysmgrSubscriber::~SysmgrSubscriber() = default;

int SysmgrSubscriber::notifyStoredParameterUpdate(Json::Value& /*parameters*/) {
    return 0;
}
int SysmgrSubscriber::notifyDynamicInfoUpdate(SysParametersDynamic& /*information*/) {
    return 0;
}
int SysmgrSubscriber::notifyRebootRequest(Json::Value& /*request*/) {
    return 0;
}
int SysmgrSubscriber::notifyMulticastWhiteListUpdate(Json::Value& /*whiteList*/) {
    return 0;
}

int SysmgrSubscriber::init(zmq::context_t& context) {
    return socket->connect(context);
}

int SysmgrSubscriber::subscribe(SysmgrPublisher::sysmgr_notifications_t kind) {
    return socket->subscribe(kind);
}

int SysmgrSubscriber::getPollItems(PollFds& pollFds) {
    return socket->addTo(pollFds);
}

bool SysmgrSubscriber::processEvent(const zmq_pollitem_t& item) {
    if (!socket->owns(item)) {
        return false;
    }
    socket->receive(
        [this](unsigned kind, Json::Value& payload) { return dispatch(kind, payload); });
    return true;
}

bool SysmgrSubscriber::dispatch(unsigned kind, Json::Value& payload) {
    switch (kind) {
    case SysmgrPublisher::sysmgr_stored_parameters_update:
        notifyStoredParameterUpdate(payload);
        return true;
    case SysmgrPublisher::sysmgr_dynamic_information_update: {
        SysParametersDynamic information;
        information.Deserialize(payload);
        notifyDynamicInfoUpdate(information);
        return true;
    }
    case SysmgrPublisher::sysmgr_reboot_request:
        notifyRebootRequest(payload);
        return true;
    case SysmgrPublisher::sysmgr_multicast_white_list_update:
        notifyMulticastWhiteListUpdate(payload);
        return true;
    default:
        return false;
    }
}
