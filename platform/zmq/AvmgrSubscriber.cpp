#include "platform/api/AvmgrSubscriber.hpp"

#include "platform/records/JsonMember.hpp"
#include "platform/zmq/NotificationSocket.hpp"

AvmgrSubscriber::AvmgrSubscriber()
    : socket(std::make_unique<NotificationSocket>("session manager",
                                                  platform_protocol::kSessionManagerEndpoint)) {}
AvmgrSubscriber::~AvmgrSubscriber() = default;

int AvmgrSubscriber::avmgrNotifyNewSessionEvent(SessionConfigData& /*config*/) {
    return 0;
}
int AvmgrSubscriber::avmgrNotifyRemovedSessionEvent(unsigned long long& /*sessionId*/) {
    return 0;
}
int AvmgrSubscriber::avmgrNotifyUpdateSessionEvent(SessionConfigData& /*config*/) {
    return 0;
}
int AvmgrSubscriber::avmgrNotifyUpdateSessionStatusEvent(SessionStatusData& /*status*/) {
    return 0;
}
int AvmgrSubscriber::avmgrNotifyNewAdvertisementEvent(AdvSessionEntry& /*entry*/) {
    return 0;
}
int AvmgrSubscriber::avmgrNotifyUpdateAdvertisementEvent(AdvSessionEntry& /*entry*/) {
    return 0;
}
int AvmgrSubscriber::avmgrNotifyRemovedAdvertisementEvent(unsigned long long& /*entryId*/) {
    return 0;
}

int AvmgrSubscriber::init(zmq::context_t& context, PollFds& pollFds) {
    const int code = socket->connect(context);
    return code < 0 ? code : socket->addTo(pollFds);
}

int AvmgrSubscriber::subscribe(AvmgrPublisher::avmgr_notifications_t kind) {
    return socket->subscribe(kind);
}

bool AvmgrSubscriber::processEvent(const zmq_pollitem_t& item) {
    if (!socket->owns(item)) {
        return false;
    }
    socket->receive(
        [this](unsigned kind, Json::Value& payload) { return dispatch(kind, payload); });
    return true;
}

bool AvmgrSubscriber::dispatch(unsigned kind, Json::Value& payload) {
    switch (kind) {
    case AvmgrPublisher::avmgr_new_session: {
        SessionConfigData config;
        config.Deserialize(payload);
        avmgrNotifyNewSessionEvent(config);
        return true;
    }
    case AvmgrPublisher::avmgr_removed_session: {
        unsigned long long id = json_member::unsigned64(payload, "id");
        avmgrNotifyRemovedSessionEvent(id);
        return true;
    }
    case AvmgrPublisher::avmgr_session_configuration_update: {
        SessionConfigData config;
        config.Deserialize(payload);
        avmgrNotifyUpdateSessionEvent(config);
        return true;
    }
    case AvmgrPublisher::avmgr_session_status: {
        SessionStatusData status;
        status.Deserialize(payload);
        avmgrNotifyUpdateSessionStatusEvent(status);
        return true;
    }
    case AvmgrPublisher::avmgr_new_advertisement: {
        AdvSessionEntry entry;
        entry.Deserialize(payload);
        avmgrNotifyNewAdvertisementEvent(entry);
        return true;
    }
    case AvmgrPublisher::avmgr_advertisement_update: {
        AdvSessionEntry entry;
        entry.Deserialize(payload);
        avmgrNotifyUpdateAdvertisementEvent(entry);
        return true;
    }
    case AvmgrPublisher::avmgr_removed_advertisement: {
        unsigned long long id = json_member::unsigned64(payload, "id");
        avmgrNotifyRemovedAdvertisementEvent(id);
        return true;
    }
    default:
        return false;
    }
}
