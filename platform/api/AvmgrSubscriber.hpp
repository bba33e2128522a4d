#pragma once

#include "model/DeviceStatus.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/api/PollFds.hpp"
#include "platform/records/AdvSessionEntry.hpp"
#include "platform/session/SessionConfigData.hpp"

#include <zmq.hpp>

#include <memory>

/// The base of a subscriber to the audio/video session manager.
///
/// A notification that cannot be decoded is dropped whole, with one line in the log; otherwise the
/// callback of its kind is called with the decoded record. A callback's result is not looked at.
class AvmgrSubscriber {
public:
    AvmgrSubscriber();
    virtual ~AvmgrSubscriber();
    AvmgrSubscriber(const AvmgrSubscriber&) = delete;
    AvmgrSubscriber& operator=(const AvmgrSubscriber&) = delete;

    /// A session was created; the argument is its configuration.
    virtual int avmgrNotifyNewSessionEvent(SessionConfigData& /*config*/) { return 0; }
    /// A session was removed; the argument is its id.
    virtual int avmgrNotifyRemovedSessionEvent(unsigned long long& /*sessionId*/) { return 0; }
    /// The configuration of a session changed.
    virtual int avmgrNotifyUpdateSessionEvent(SessionConfigData& /*config*/) { return 0; }
    /// The status of a session changed; the argument is its complete new status.
    virtual int avmgrNotifyUpdateSessionStatusEvent(SessionStatusData& /*status*/) { return 0; }
    /// Sessions that other devices advertise.
    virtual int avmgrNotifyNewAdvertisementEvent(AdvSessionEntry& /*entry*/) { return 0; }
    virtual int avmgrNotifyUpdateAdvertisementEvent(AdvSessionEntry& /*entry*/) { return 0; }
    virtual int avmgrNotifyRemovedAdvertisementEvent(unsigned long long& /*entryId*/) { return 0; }

    /// Connects to the notification stream and adds the socket to `pollFds`. The service may be
    /// absent. Returns 0, -103 or -104.
    int init(zmq::context_t& context, PollFds& pollFds);
    /// Asks for one kind of notification. Returns 0 or -103.
    int subscribe(AvmgrPublisher::avmgr_notifications_t kind);
    /// True when `item` is this subscriber's own; the notifications that were there, up to a bound,
    /// have then been read and passed to their callbacks.
    bool processEvent(const zmq_pollitem_t& item);

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};
