#pragma once

#include "platform/records/IpcMsg.hpp"

#include <json/writer.h>
#include <zmq.hpp>

#include <list>
#include <map>
#include <memory>
#include <sstream>
#include <string>

/// The registry of remote consumers, and the sender of the messages that they receive.
///
/// A consumer is known by its address alone: a ZeroMQ endpoint, used and compared byte for byte as
/// it was given ("tcp://a:1" and "tcp://a:01" are two consumers). Each has one PUSH socket with the
/// library's defaults. There is no automatic removal: a consumer that goes away stays registered,
/// and its messages are queued up to the library's high-water mark. One thread uses a publisher.
class WebNotifierPublisher {
public:
    WebNotifierPublisher();
    /// Closes every socket. What is queued goes on leaving in the background.
    virtual ~WebNotifierPublisher();
    WebNotifierPublisher(const WebNotifierPublisher&) = delete;
    WebNotifierPublisher& operator=(const WebNotifierPublisher&) = delete;

    /// Registers a consumer and connects to it in the background, whether or not it listens.
    /// Returns 0 when it is registered afterwards, also when it was before; -33 when the address is
    /// no endpoint or the context has no socket left.
    int addRemote(zmq::context_t& context, std::string& address);

    /// Removes a consumer, if it is there, and closes its socket. What is queued for it goes on
    /// leaving in the background. Returns 0.
    int removeRemote(std::string& address);

    /// Appends every address to `out`, in byte-wise ascending order. Returns 0.
    int getRemoteServersList(std::list<std::string>& out);

    /// Sends `message` as one frame of compact JSON to the consumer registered as `target`, or to
    /// every consumer, in the order of their addresses, when `target` is empty. A send to a
    /// consumer whose queue is full blocks until the consumer reads; the log names it. A failed
    /// send, such as one that a signal interrupts, is logged and skipped. Returns 0.
    int publishMessage(IpcMsg& message, std::string target);

    bool hasRemotes() const { return !remotes.empty(); }

private:
    zmq::message_t encode(const IpcMsg& message);

    std::map<std::string, zmq::socket_t> remotes;
    // Kept from one message to the next: to make them costs as much as to write a short message.
    std::unique_ptr<Json::StreamWriter> writer;
    std::ostringstream text;
};
