#pragma once

#include "handler/WebNotifierHandler.hpp"
#include "platform/records/JsonText.hpp"

#include <zmq.hpp>

#include <string>

/// The service's handler, set up as in the service but for the loop, with one consumer that reads.
class FuzzedHandler : public WebNotifierHandler {
public:
    /// Takes the command port.
    FuzzedHandler();

    /// The document as text, after a look whether it is sound: it can be written, read and written
    /// again, and is the same.
    std::string soundDocument();

    /// Reads what the consumer has been told; every message has to be a sound one.
    void readMail();

    /// Takes every session out of the document and every consumer but the first out of the list.
    void tidyUp();

    /// Waits for events and passes them on; false when none has come within `limitMs`.
    bool serveEvents(long limitMs);

    zmq::context_t& context() { return zmqContext; }

private:
    Json::Value command(unsigned id, const Json::Value& payload = Json::Value());

    zmq::context_t zmqContext;
    PollFds pollFds;
    zmq::socket_t consumer;
    std::string consumerAddress;
    JsonDecoder decoder;
};
