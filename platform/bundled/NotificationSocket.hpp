#pragma once

#include "platform/api/PollFds.hpp"
#include "platform/records/JsonText.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// The subscriber's end of one service's notification stream: what the three subscribers share.
///
/// A notification is two frames, the kind in decimal ASCII and an IpcMsg whose command id is the
/// kind.
class NotificationSocket {
public:
    /// Decodes the payload of one kind and calls its callback. Raises Json::Exception when the
    /// payload cannot be decoded, anything else when the callback fails; returns false for a kind
    /// that the service does not have.
    using Dispatch = std::function<bool(unsigned kind, Json::Value& payload)>;

    /// `serviceName` is what log lines call the service that binds `endpointToUse`.
    NotificationSocket(const char* serviceName, const char* endpointToUse);

    /// Connects to the service, which may be absent. Returns 0 or -103.
    int connect(zmq::context_t& context);
    /// Asks for one kind. Returns 0, or -103 also without a connection.
    int subscribe(unsigned kind);
    /// Adds the socket to `pollFds`. Returns 0 or -104.
    int addTo(PollFds& pollFds);
    /// Whether `item` is this socket.
    bool owns(const zmq_pollitem_t& item) const;

    /// Receives the notifications that are there, up to a bound, and dispatches them in order. One
    /// that cannot be decoded is dropped with one line at level 2 that names the service, the kind
    /// and the reason; one whose callback fails is reported likewise as not carried through, since
    /// something of it may have been taken in. Never waits, never throws on account of a
    /// notification.
    void receive(const Dispatch& dispatch);

private:
    bool receiveOne(const Dispatch& dispatch);
    void handle(bool twoFrames, const Dispatch& dispatch);
    void drop(const std::string& reason);
    void report(const char* outcome, const char* reason);

    const char* service;
    const char* endpoint;
    std::optional<zmq::socket_t> socket;
    JsonDecoder decoder;
    zmq::message_t kindFrame;
    zmq::message_t messageFrame;
};
