#include "handler/WebNotifierCommand.hpp"
#include "handler/WebNotifierHandler.hpp"
#include "platform/api/Chk.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/ResultCode.hpp"
#include "platform/records/JsonMember.hpp"

#include <list>
#include <utility>

int WebNotifierHandler::getCommandDescription(unsigned int commandId, std::string& description) {
    // A known name replaces what the text held, an unknown one is appended to it: callers that put
    // a prefix there rely on seeing it in front of "not recognized".
    if (WebNotifierCommand::getCommandNameStr(commandId, description) < 0) {
        description += "not recognized";
    }
    return 0;
}

int WebNotifierHandler::ipcProcessMsg(IpcMsg& request, Json::Value& reply, bool& replyWanted) {
    replyWanted = true;
    switch (request.commandId) {
    case WebNotifierCommand::get_device_status:
        deviceStatus.Serialize(reply["status"]);
        return 0;
    case WebNotifierCommand::add_remote_info_consumer: {
        std::string address = json_member::text(request.payload, "address");
        if (const int code = publisher.addRemote(*context, address); code < 0) {
            return CHK(code);
        }
        // The consumer has the whole state at once, and again if it registers a second time.
        publishAllDeviceStatus(std::move(address));
        return 0;
    }
    case WebNotifierCommand::remove_remote_info_consumer: {
        std::string address = json_member::text(request.payload, "address");
        if (const int code = publisher.removeRemote(address); code < 0) {
            return CHK(code);
        }
        return 0;
    }
    case WebNotifierCommand::get_server_list: {
        std::list<std::string> addresses;
        if (const int code = publisher.getRemoteServersList(addresses); code < 0) {
            return CHK(code);
        }
        Json::ArrayIndex index = 0;
        for (const std::string& address : addresses) {
            reply["remote"][index++] = address;
        }
        return 0;
    }
    default:
        Logger::log(Logger::LOG_LEVEL_ERR, "WebnotifierHandler command %d is not recognized.",
                    static_cast<int>(request.commandId));
        return result_code::kUnknownId;
    }
}
