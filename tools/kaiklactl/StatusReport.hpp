#pragma once

#include "model/DeviceStatus.hpp"

#include <cstddef>
#include <cstdint>
#include <string>

namespace kaiklactl {

/// The status document for a person: a summary, then the PTP ports, the Ethernet ports and the
/// sessions as tables. Alarms start with "!" and, with `colour`, are painted.
std::string statusReport(const WebNotifierDeviceStatus& status, bool colour);

// The words for parts of the document, the same wherever they are printed.

/// "1 stream", "2 streams".
std::string counted(std::size_t number, const char* noun);

/// "warning: packets are lost (type 5)".
std::string alarmText(const StreamAlarmData& alarm);

/// The session's own alarms and those of its streams.
std::size_t alarmCount(const SessionStatusData& session);
std::size_t alarmCount(const WebNotifierDeviceStatus& status);

/// "up", "down", or the number of a state that is neither.
std::string portState(const EthBasicInfo& port);
bool isUp(const EthBasicInfo& port);

/// False for the record of a service that has not heard from the PTP management service yet.
bool isReported(const PtpCommonInfo& ptp);

/// "locked, offset 12 ns", "not locked" or "not reported".
std::string ptpState(const PtpCommonInfo& ptp);

/// "12 ns".
std::string nanoseconds(std::int64_t value);

} // namespace kaiklactl
