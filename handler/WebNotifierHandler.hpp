#pragma once

#include "model/DeviceStatus.hpp"
#include "platform/api/AvmgrSubscriber.hpp"
#include "platform/api/NmosClientIpc.hpp"
#include "platform/api/PollFds.hpp"
#include "platform/api/ServerJsonApi.hpp"
#include "platform/api/SysmgrSubscriber.hpp"
#include "platform/api/ZatPmcSubscriber.hpp"
#include "publisher/WebNotifierPublisher.hpp"

#include <zmq.hpp>

#include <string>

/// The centre of the service: at once the server of the JSON commands and the subscriber to every
/// platform service. It keeps the device status document current and publishes what changed.
///
/// A change of the document is never rolled back when a later step fails. Everything runs on the
/// event loop's thread.
class WebNotifierHandler : public ServerJsonApi,
                           public AvmgrSubscriber,
                           public ZatPmcSubscriber,
                           public SysmgrSubscriber {
public:
    WebNotifierHandler() = default;
    /// Closes the consumers' connections. The command socket stays open until the process ends.
    ~WebNotifierHandler() override = default;
    WebNotifierHandler(const WebNotifierHandler&) = delete;
    WebNotifierHandler& operator=(const WebNotifierHandler&) = delete;

    // Set-up and dispatch

    /// Binds the command socket, subscribes to the platform services and adds every socket to
    /// `pollFds`. Both arguments must outlive the handler. Returns 0; -35 when the command socket
    /// cannot be created or bound; otherwise the platform's code. Nothing is undone on failure.
    int init(zmq::context_t& zmqContext, PollFds& pollFds);

    /// Offers one ready poll item. True when one of the handler's parts owned it.
    bool processIncomingEvents(const zmq_pollitem_t& item);

    /// Makes sure that the document's device id is known, asking the NMOS node while it is empty.
    /// Returns 0, also when the node knows none, or the platform's negative code.
    int checkIfDeviceIdIsDefined();

    /// Whether any consumer is registered.
    bool hasRemotes() const { return publisher.hasRemotes(); }

    // Commands

    int getCommandDescription(unsigned int commandId, std::string& description) override;
    int ipcProcessMsg(IpcMsg& request, Json::Value& reply, bool& replyWanted) override;

    // Session events

    int avmgrNotifyNewSessionEvent(SessionConfigData& config) override;
    int avmgrNotifyRemovedSessionEvent(unsigned long long& sessionId) override;
    int avmgrNotifyUpdateSessionStatusEvent(SessionStatusData& status) override;

    // PTP and system events

    int zatPmcPtpStatusChangeEvent(PtpCommonInfo& status) override;
    int zatPmcPtpConfigChangeEvent(ZatPmcPtpCfg& config) override;
    int notifyDynamicInfoUpdate(SysParametersDynamic& information) override;

    // Full status

    /// Publishes the whole document as "status-all" to the consumer registered as `remote`, or to
    /// every consumer when `remote` is empty. Returns 0, also when a send failed; the code of
    /// checkIfDeviceIdIsDefined when the device id cannot be obtained, and nothing is sent then.
    int publishAllDeviceStatus(std::string remote);

private:
    /// A plain pointer, never freed: the socket stays open until the process ends, so that no
    /// client sees the port closed before the service is gone. StopDeadline bounds the stop.
    zmq::socket_t* commandSocket = nullptr;
    WebNotifierPublisher publisher;
    zmq::context_t* context = nullptr;
    WebNotifierDeviceStatus deviceStatus;
    NmosClientIpc nmosClient;
};
