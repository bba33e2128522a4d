#pragma once

#include "platform/api/PollFds.hpp"
#include "platform/records/JsonText.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>

/// The subscriber's end of one service's notification stream: what the three subscribers share.
///
/// A notification is two frames: its kind in decimal ASCII, an IpcMsg with the kind as command id.
class NotificationSocket {
public:
    /// Decodes the payload of one kind and calls its callback. Raises Json::LogicError when the
    /// payload cannot be decoded, anything else when the callback fails.
    using Dispatch = std::function<void(unsigned kind, Json::Value& payload)>;

    /// `serviceName` is what log lines call the service that binds `endpointToUse`.
    NotificationSocket(const char* serviceName, const char* endpointToUse);

    /// Connects to the service, which may be absent. Returns 0 or -103.
    int connect(zmq::context_t& context);
    /// Asks for one kind. Returns 0, or -103 also without a connection.
    int subscribe(unsigned kind);
    /// Adds the socket to `pollFds`. Returns 0 or -104.
    int addTo(PollFds& pollFds);

    /// False when `item` is not this socket. Otherwise receives the notifications that are there,
    /// at most 32, and dispatches each before it takes the next. One that cannot be decoded is
    /// dropped with one line at level 2 that names the service, the kind and the reason. One whose
    /// callback fails is reported likewise as not carried through, since something of it may have
    /// been taken in. A kind that nobody asked for is ignored with a debug line. Never waits, never
    /// throws on account of a notification.
    bool process(const zmq_pollitem_t& item, const Dispatch& dispatch);

private:
    bool receiveOne(const Dispatch& dispatch);
    void handle(unsigned kind, const Dispatch& dispatch);
    void drop(const std::string& reason);
    void report(const char* outcome, const char* reason);

    const char* service;
    const char* endpoint;
    std::optional<zmq::socket_t> socket;
    std::set<unsigned> kinds;
    JsonDecoder decoder;
    zmq::message_t kindFrame;
    zmq::message_t messageFrame;
};

/// Reads the payload into a fresh record and hands it to one of the subscriber's callbacks.
template <typename Subscriber, typename Record>
void deliver(Subscriber& subscriber, int (Subscriber::*callback)(Record&), Json::Value& payload) {
    Record record;
    record.Deserialize(payload);
    (subscriber.*callback)(record);
}
