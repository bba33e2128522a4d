#pragma once

#include "platform/records/IpcMsg.hpp"

/// The kinds of message that remote consumers receive.
class WebNotifierPublishCommand {
public:
    enum webnotifier_publish_command_id_t : unsigned {
        /// The whole device status document.
        status_all = 0,
        /// One session's status.
        status_session = 1,
    };

    WebNotifierPublishCommand() = delete;

    /// Stamps `message` with the id and the name of a kind. Returns 0, or -8 when there is no such
    /// kind; the message is then left as it was.
    static int getCommandStr(webnotifier_publish_command_id_t id, IpcMsg& message);
};
