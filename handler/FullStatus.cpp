#include "handler/WebNotifierHandler.hpp"
#include "handler/WebNotifierPublishCommand.hpp"
#include "platform/api/Chk.hpp"

#include <utility>

int WebNotifierHandler::publishAllDeviceStatus(std::string remote) {
    if (const int code = checkIfDeviceIdIsDefined(); code < 0) {
        return CHK(code);
    }
    IpcMsg message;
    if (const int code = WebNotifierPublishCommand::getCommandStr(
            WebNotifierPublishCommand::status_all, message);
        code < 0) {
        return CHK(code);
    }
    deviceStatus.Serialize(message.payload);
    publisher.publishMessage(message, std::move(remote));
    return 0;
}
