#include "platform/api/AvmgrSubscriber.hpp"

#include "platform/bundled/NotificationSocket.hpp"
#include "platform/records/JsonMember.hpp"

namespace {

bool dispatch(AvmgrSubscriber& subscriber, unsigned kind, Json::Value& payload) {
    switch (kind) {
    case AvmgrPublisher::avmgr_new_session: {
        SessionConfigData config;
        config.Deserialize(payload);
        subscriber.avmgrNotifyNewSessionEvent(config);
        return true;
    }
    case AvmgrPublisher::avmgr_removed_session: {
        unsigned long long id = json_member::unsigned64(payload, "id");
        subscriber.avmgrNotifyRemovedSessionEvent(id);
        return true;
    }
    case AvmgrPublisher::avmgr_session_configuration_update: {
        SessionConfigData config;
        config.Deserialize(payload);
        subscriber.avmgrNotifyUpdateSessionEvent(config);
        return true;
    }
    case AvmgrPublisher::avmgr_session_status: {
        SessionStatusData status;
        status.Deserialize(payload);
        subscriber.avmgrNotifyUpdateSessionStatusEvent(status);
        return true;
    }
    case AvmgrPublisher::avmgr_new_advertisement: {
        AdvSessionEntry entry;
        entry.Deserialize(payload);
        subscriber.avmgrNotifyNewAdvertisementEvent(entry);
        return true;
    }
    case AvmgrPublisher::avmgr_advertisement_update: {
        AdvSessionEntry entry;
        entry.Deserialize(payload);
        subscriber.avmgrNotifyUpdateAdvertisementEvent(entry);
        return true;
    }
    case AvmgrPublisher::avmgr_removed_advertisement: {
        unsigned long long id = json_member::unsigned64(payload, "id");
        subscriber.avmgrNotifyRemovedAdvertisementEvent(id);
        return true;
    }
    default:
        return false;
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
    if (!impl->socket.owns(item)) {
        return false;
    }
    impl->socket.receive(
        [this](unsigned kind, Json::Value& payload) { return dispatch(*this, kind, payload); });
    return true;
}
