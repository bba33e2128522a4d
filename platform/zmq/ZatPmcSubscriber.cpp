#include "platform/api/ZatPmcSubscriber.hpp"

#include "platform/zmq/NotificationSocket.hpp"

ZatPmcSubscriber::ZatPmcSubscriber()
    : socket(std::make_unique<NotificationSocket>("PTP management",
                                                  platform_protocol::kPtpManagementEndpoint)) {}
ZatPmcSubscriber::~ZatPmcSubscriber() = default;

int ZatPmcSubscriber::zatPmcPtpStatusChangeEvent(PtpCommonInfo& /*status*/) {
    return 0;
}
int ZatPmcSubscriber::zatPmcPtpConfigChangeEvent(ZatPmcPtpCfg& /*config*/) {
    return 0;
}

int ZatPmcSubscriber::init(zmq::context_t& context, PollFds& pollFds) {
    const int code = socket->connect(context);
    return code < 0 ? code : socket->addTo(pollFds);
}

int ZatPmcSubscriber::subscribeAll() {
    for (const auto kind :
         {ZatPmcPublisher::zat_pmc_status_change, ZatPmcPublisher::zat_pmc_configuration_change}) {
        if (const int code = socket->subscribe(kind); code < 0) {
            return code;
        }
    }
    return 0;
}

bool ZatPmcSubscriber::processEvent(const zmq_pollitem_t& item) {
    if (!socket->owns(item)) {
        return false;
    }
    socket->receive(
        [this](unsigned kind, Json::Value& payload) { return dispatch(kind, payload); });
    return true;
}

bool ZatPmcSubscriber::dispatch(unsigned kind, Json::Value& payload) {
    switch (kind) {
    case ZatPmcPublisher::zat_pmc_status_change: {
        PtpCommonInfo status;
        status.Deserialize(payload);
        zatPmcPtpStatusChangeEvent(status);
        return true;
    }
    case ZatPmcPublisher::zat_pmc_configuration_change: {
        ZatPmcPtpCfg config;
        config.Deserialize(payload);
        zatPmcPtpConfigChangeEvent(config);
        return true;
    }
    default:
        return false;
    }
}
