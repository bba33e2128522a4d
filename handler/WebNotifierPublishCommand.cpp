#include "handler/WebNotifierPublishCommand.hpp"

#include "platform/api/ResultCode.hpp"

#include <map>
#include <string>

int WebNotifierPublishCommand::getCommandStr(webnotifier_publish_command_id_t id, IpcMsg& message) {
    static const std::map<unsigned int, std::string> names = {
        {status_all, "status-all"},
        {status_session, "status-session"},
    };
    const auto entry = names.find(id);
    if (entry == names.end()) {
        return result_code::kUnknownId;
    }
    message.commandId = id;
    message.commandName = entry->second;
    return 0;
}
