#include "platform/api/ZatPmcSubscriber.hpp"

#include "platform/bundled/NotificationSocket.hpp"

namespace {

void dispatch(ZatPmcSubscriber& subscriber, unsigned kind, Json::Value& payload) {
    switch (kind) {
    case ZatPmcPublisher::zat_pmc_status_change:
        return deliver(subscriber, &ZatPmcSubscriber::zatPmcPtpStatusChangeEvent, payload);
    case ZatPmcPublisher::zat_pmc_configuration_change:
        return deliver(subscriber, &ZatPmcSubscriber::zatPmcPtpConfigChangeEvent, payload);
    default:
        return;
    }
}

} // namespace

struct ZatPmcSubscriber::Impl {
    NotificationSocket socket{"PTP management", platform_protocol::kPtpManagementEndpoint};
};

ZatPmcSubscriber::ZatPmcSubscriber() : impl(std::make_unique<Impl>()) {}
ZatPmcSubscriber::~ZatPmcSubscriber() = default;

int ZatPmcSubscriber::init(zmq::context_t& context, PollFds& pollFds) {
    const int code = impl->socket.connect(context);
    return code < 0 ? code : impl->socket.addTo(pollFds);
}

int ZatPmcSubscriber::subscribeAll() {
    for (const auto kind :
         {ZatPmcPublisher::zat_pmc_status_change, ZatPmcPublisher::zat_pmc_configuration_change}) {
        if (const int code = impl->socket.subscribe(kind); code < 0) {
            return code;
        }
    }
    return 0;
}

bool ZatPmcSubscriber::processEvent(const zmq_pollitem_t& item) {
    return impl->socket.process(
        item, [this](unsigned kind, Json::Value& payload) { dispatch(*this, kind, payload); });
}
