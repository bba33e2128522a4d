#pragma once

#include "platform/PlatformProtocol.hpp"
#include "platform/api/PollFds.hpp"
#include "platform/records/SysParametersDynamic.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <memory>

/// The base of a subscriber to the system manager. Behaves as AvmgrSubscriber.
class SysmgrSubscriber {
public:
    SysmgrSubscriber();
    virtual ~SysmgrSubscriber();
    SysmgrSubscriber(const SysmgrSubscriber&) = delete;
    SysmgrSubscriber& operator=(const SysmgrSubscriber&) = delete;

    /// A stored parameter changed; the argument is what the system manager says about it.
    virtual int notifyStoredParameterUpdate(Json::Value& /*parameters*/) { return 0; }
    /// Temperatures, Ethernet ports and the like changed.
    virtual int notifyDynamicInfoUpdate(SysParametersDynamic& /*information*/) { return 0; }
    /// The system is asked to reboot.
    virtual int notifyRebootRequest(Json::Value& /*request*/) { return 0; }
    /// The list of multicast groups that may be joined changed.
    virtual int notifyMulticastWhiteListUpdate(Json::Value& /*whiteList*/) { return 0; }

    /// Connects to the notification stream. The service may be absent. Returns 0 or -103.
    int init(zmq::context_t& context);
    /// Asks for one kind of notification. Returns 0 or -103.
    int subscribe(SysmgrPublisher::sysmgr_notifications_t kind);
    /// Adds the socket to `pollFds`. Returns 0 or -104.
    int getPollItems(PollFds& pollFds);
    /// As AvmgrSubscriber::processEvent.
    bool processEvent(const zmq_pollitem_t& item);

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};
