#pragma once

#include "model/DeviceStatus.hpp"
#include "platform/records/IpcMsg.hpp"

#include <string>

namespace kaiklactl {

/// What a consumer has been told so far, and so what each further message changes.
class StatusHistory {
public:
    /// Takes one published message in and says in a few words what it changed, or what it holds
    /// when there is nothing to compare it with. The words may hold text from the network.
    ///
    /// Raises Json::Exception for a payload that is not the status that the message's kind
    /// promises; what was known stays.
    std::string take(IpcMsg& message);

    /// For a service that has started afresh: the next whole status is not a change.
    void forget() { *this = StatusHistory(); }

private:
    std::string takeWhole(WebNotifierDeviceStatus status);
    std::string takeSession(SessionStatusData session);

    WebNotifierDeviceStatus known;
    /// False until a whole status has come.
    bool complete = false;
};

} // namespace kaiklactl
