#pragma once

#include "platform/records/IpcMsg.hpp"

#include <zmq.hpp>

#include <memory>
#include <string>

/// The base of a server of JSON commands on a ZeroMQ REP socket.
///
/// A request is one frame holding an IpcMsg. The reply is one frame: {"command_id", "command_name",
/// "result", "payload", "error"}, "error" (one sentence for a person) only with a negative result.
/// Every request gets exactly one reply; one that cannot be decoded gets result -101.
class ServerJsonApi {
public:
    ServerJsonApi();
    virtual ~ServerJsonApi();
    ServerJsonApi(const ServerJsonApi&) = delete;
    ServerJsonApi& operator=(const ServerJsonApi&) = delete;

    /// Gives the name of a command, for the reply and the log. `description` comes in empty.
    virtual int getCommandDescription(unsigned int commandId, std::string& description) = 0;

    /// Carries out one command. `reply` comes in as null and becomes the reply's payload; its
    /// result is the reply's. A Json::LogicError means that a value of the request has a type that
    /// the command cannot convert. `replyWanted` set to false leaves the payload out of the reply.
    virtual int ipcProcessMsg(IpcMsg& request, Json::Value& reply, bool& replyWanted) = 0;

    /// Receives one request from `socket`, has it carried out and sends the reply. Returns 0, also
    /// when there was nothing to receive, or the negative result of the request. Never throws on
    /// account of a request, and never waits.
    int ipcPreProcessMsg(zmq::socket_t* socket);

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};
