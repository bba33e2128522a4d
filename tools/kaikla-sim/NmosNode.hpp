#pragma once

#include "platform/api/ServerJsonApi.hpp"

#include <zmq.hpp>

#include <string>

namespace sim {

/// The NMOS node, which knows the device's id and answers nothing else.
class NmosNode : public ServerJsonApi {
public:
    /// Binds the node's endpoint; throws std::runtime_error with a sentence for the user when that
    /// fails.
    NmosNode(zmq::context_t& context, std::string deviceId);

    /// Answers one request, if there is one.
    void answerRequest() { ipcPreProcessMsg(&socket); }

    int getCommandDescription(unsigned int commandId, std::string& description) override;
    int ipcProcessMsg(IpcMsg& request, Json::Value& reply, bool& replyWanted) override;

    void* handle() { return socket.handle(); }

private:
    std::string device;
    zmq::socket_t socket;
};

} // namespace sim
