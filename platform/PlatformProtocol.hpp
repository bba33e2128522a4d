#pragma once

#include <cstddef>

/// Where the services around this one are found and what their numbers mean. Nothing else in the
/// tree repeats an endpoint, a notification kind or a platform code: on another platform
/// with the same messages they are changed here.
namespace platform_protocol {

/// Command interface: this service binds a REP socket here; REQ and DEALER sockets connect.
inline constexpr const char* kCommandBindEndpoint = "tcp://*:5580";
/// The same, as a client on this machine connects to it.
inline constexpr const char* kCommandEndpoint = "tcp://127.0.0.1:5580";

/// Notifications: the service named binds an XPUB socket, this one connects a SUB socket.
inline constexpr const char* kSessionManagerEndpoint = "tcp://127.0.0.1:5581";
inline constexpr const char* kSystemManagerEndpoint = "tcp://127.0.0.1:5582";
inline constexpr const char* kPtpManagementEndpoint = "tcp://127.0.0.1:5583";

/// Requests: the NMOS node binds a REP or ROUTER socket, this service connects a REQ socket.
inline constexpr const char* kNmosNodeEndpoint = "tcp://127.0.0.1:5584";
inline constexpr unsigned kNmosGetDeviceInfoId = 0;
inline constexpr const char* kNmosGetDeviceInfoName = "GET device info";
/// How long a connected node may take to answer, milliseconds.
inline constexpr int kNmosAnswerTimeoutMs = 1000;

/// Requests and notifications beyond this size are refused, bytes.
inline constexpr std::size_t kMaxFrameBytes = std::size_t{1024} * 1024;

/// A message cannot be decoded.
inline constexpr int kErrorMalformed = -101;
/// A service cannot be reached, or did not answer in time.
inline constexpr int kErrorUnreachable = -102;
/// A socket of the platform layer cannot be created, connected or subscribed.
inline constexpr int kErrorSocket = -103;
/// The poll set cannot take another item.
inline constexpr int kErrorPollSetFull = -104;

} // namespace platform_protocol

/// The session manager's notification kinds; the numbers are the subscription topics.
class AvmgrPublisher {
public:
    enum avmgr_notifications_t : unsigned {
        avmgr_new_session = 1000,
        avmgr_removed_session = 1001,
        avmgr_session_configuration_update = 1002,
        avmgr_session_status = 1003,
        avmgr_new_advertisement = 1004,
        avmgr_advertisement_update = 1005,
        avmgr_removed_advertisement = 1006,
    };
};

/// The system manager's notification kinds.
class SysmgrPublisher {
public:
    enum sysmgr_notifications_t : unsigned {
        sysmgr_stored_parameters_update = 1000,
        sysmgr_dynamic_information_update = 1001,
        sysmgr_reboot_request = 1002,
        sysmgr_multicast_white_list_update = 1003,
    };
};

/// The PTP management service's notification kinds.
class ZatPmcPublisher {
public:
    enum zat_pmc_notifications_t : unsigned {
        zat_pmc_status_change = 1000,
        zat_pmc_configuration_change = 1001,
    };
};
