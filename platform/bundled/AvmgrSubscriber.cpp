#include "platform/api/AvmgrSubscriber.hpp"

#include "platform/bundled/NotificationSocket.hpp"
#include "platform/records/JsonMember.hpp"

namespace {

void deliverId(AvmgrSubscriber& subscriber, int (AvmgrSubscriber::*callback)(unsigned long long&),
               const Json::Value& payload) {
    unsigned long long id = json_member::unsigned64(payload, "id");
    (subscriber.*callback)(id);
}

void dispatch(AvmgrSubscriber& subscriber, unsigned kind, Json::Value& payload) {
    switch (kind) {
    case AvmgrPublisher::avmgr_new_session:
        return deliver(subscriber, &AvmgrSubscriber::avmgrNotifyNewSessionEvent, payload);
    case AvmgrPublisher::avmgr_removed_session:
        return deliverId(subscriber, &AvmgrSubscriber::avmgrNotifyRemovedSessionEvent, payload);
    case AvmgrPublisher::avmgr_session_configuration_update:
        return deliver(subscriber, &AvmgrSubscriber::avmgrNotifyUpdateSessionEvent, payload);
    case AvmgrPublisher::avmgr_session_status:
        return deliver(subscriber, &AvmgrSubscriber::avmgrNotifyUpdateSessionStatusEvent, payload);
    case AvmgrPublisher::avmgr_new_advertisement:
        return deliver(subscriber, &AvmgrSubscriber::avmgrNotifyNewAdvertisementEvent, payload);
    case AvmgrPublisher::avmgr_advertisement_update:
        return deliver(subscriber, &AvmgrSubscriber::avmgrNotifyUpdateAdvertisementEvent, payload);
    case AvmgrPublisher::avmgr_removed_advertisement:
        return deliverId(subscriber, &AvmgrSubscriber::avmgrNotifyRemovedAdvertisementEvent,
                         payload);
    default:
        return;
    }
}

} // namespace

struct AvmgrSubscriber::Impl {
    NotificationSocket socket{"session manager", platform_protocol::kSessionManagerEndpoint};
};

AvmgrSubscriber::AvmgrSubscriber() : impl(std::make_unique<Impl>()) {}
AvmgrSubscriber::~AvmgrSubscriber() = default;

int AvmgrSubscriber::init(zmq::context_t& context, PollFds& pollFds) {
    const int code = impl->socket.connect(context);
    return code < 0 ? code : impl->socket.addTo(pollFds);
}

int AvmgrSubscriber::subscribe(AvmgrPublisher::avmgr_notifications_t kind) {
    return impl->socket.subscribe(kind);
}

bool AvmgrSubscriber::processEvent(const zmq_pollitem_t& item) {
    return impl->socket.process(
        item, [this](unsigned kind, Json::Value& payload) { dispatch(*this, kind, payload); });
}
