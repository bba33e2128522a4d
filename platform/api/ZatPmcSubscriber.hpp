#pragma once

#include "platform/PlatformProtocol.hpp"
#include "platform/api/PollFds.hpp"
#include "platform/records/PtpCommonInfo.hpp"
#include "platform/records/ZatPmcPtpCfg.hpp"

#include <zmq.hpp>

#include <memory>

/// The base of a subscriber to the PTP management service (IEEE 1588). Behaves as AvmgrSubscriber.
class ZatPmcSubscriber {
public:
    ZatPmcSubscriber();
    virtual ~ZatPmcSubscriber();
    ZatPmcSubscriber(const ZatPmcSubscriber&) = delete;
    ZatPmcSubscriber& operator=(const ZatPmcSubscriber&) = delete;

    /// The PTP status changed; the argument is the complete new status.
    virtual int zatPmcPtpStatusChangeEvent(PtpCommonInfo& /*status*/) { return 0; }
    /// The PTP configuration changed.
    virtual int zatPmcPtpConfigChangeEvent(ZatPmcPtpCfg& /*config*/) { return 0; }

    /// Connects to the notification stream and adds the socket to `pollFds`. The service may be
    /// absent. Returns 0, -103 or -104.
    int init(zmq::context_t& context, PollFds& pollFds);
    /// Asks for every kind of notification. Returns 0 or -103.
    int subscribeAll();
    /// As AvmgrSubscriber::processEvent.
    bool processEvent(const zmq_pollitem_t& item);

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};
