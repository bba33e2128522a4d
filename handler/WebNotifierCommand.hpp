#pragma once

#include <string>

/// The commands of the command interface.
class WebNotifierCommand {
public:
    enum webnotifier_command_id_t : unsigned {
        get_device_status = 0,
        add_remote_info_consumer = 1,
        remove_remote_info_consumer = 2,
        get_server_list = 3,
    };

    WebNotifierCommand() = delete;

    /// Sets `name` to the name of a command. Returns 0, or -8 when there is no such command; `name`
    /// is then left as it was.
    static int getCommandNameStr(unsigned int commandId, std::string& name);
};
