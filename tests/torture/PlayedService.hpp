#pragma once

#include <string_view>

/// A platform service as a process of its own, so that it can be killed: this program again, with
/// the option below, a service's name and the number of its life.
///
/// Everything that it sends carries that life and a running number ("LIFE-NUMBER"): the session
/// manager in the NMOS id of kNumberedSession, up to a thousand times a second; the others in the
/// PTP clock's identity and a port's MAC address, up to two hundred times. The session manager also
/// sends kAnonymousSession, without a device id: the NMOS node has to be asked for it.
class PlayedService {
public:
    static constexpr std::string_view kOption = "--play";
    static constexpr const char* kSessionManager = "session-manager";
    static constexpr const char* kSystemManager = "system-manager";
    static constexpr const char* kPtpManagement = "ptp-management";
    static constexpr const char* kNmosNode = "nmos-node";

    static constexpr unsigned kNumberedSession = 1;
    static constexpr unsigned kAnonymousSession = 2;

    PlayedService() = delete;

    /// Plays until it is killed.
    static int run(std::string_view name, std::string_view life);
};
