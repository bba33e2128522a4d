#pragma once

#include "model/DeviceStatus.hpp"

#include <string>

namespace kaiklactl {

/// The status document for a person: a summary, then the PTP ports, the Ethernet ports and the
/// sessions as tables. Alarms start with "!" and, with `colour`, are painted.
std::string statusReport(const WebNotifierDeviceStatus& status, bool colour);

} // namespace kaiklactl
