#include "handler/WebNotifierCommand.hpp"

#include "platform/api/ResultCode.hpp"

#include <map>

int WebNotifierCommand::getCommandNameStr(unsigned int commandId, std::string& name) {
    static const std::map<unsigned int, std::string> names = {
        {get_device_status, "GET device status"},
        {add_remote_info_consumer, "Add remote info consumer"},
        {remove_remote_info_consumer, "Remove remote info consumer"},
        {get_server_list, "GET Server list"},
    };
    const auto entry = names.find(commandId);
    if (entry == names.end()) {
        return result_code::kUnknownId;
    }
    name = entry->second;
    return 0;
}
