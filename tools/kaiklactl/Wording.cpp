#include "tools/kaiklactl/Wording.hpp"

namespace kaiklactl {
namespace {

// EthBasicInfo::state
constexpr std::uint8_t kDown = 0;
constexpr std::uint8_t kUp = 1;

} // namespace

std::string counted(std::size_t number, const char* noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string alarmText(const StreamAlarmData& alarm) {
    return alarm.severity + ": " + alarm.description + " (type " + std::to_string(alarm.type) + ")";
}

std::size_t alarmCount(const SessionStatusData& session) {
    std::size_t count = session.alarms.size();
    for (const StreamStatusData& stream : session.streams) {
        count += stream.alarms.size();
    }
    return count;
}

std::size_t alarmCount(const WebNotifierDeviceStatus& status) {
    std::size_t count = 0;
    for (const SessionStatusData& session : status.sessions) {
        count += alarmCount(session);
    }
    return count;
}

std::string portState(const EthBasicInfo& port) {
    switch (port.state) {
    case kDown:
        return "down";
    case kUp:
        return "up";
    default:
        return "state " + std::to_string(port.state);
    }
}

bool isUp(const EthBasicInfo& port) {
    return port.state == kUp;
}

bool isReported(const PtpCommonInfo& ptp) {
    return ptp.locked || !ptp.clockId.empty() || !ptp.grandmasterId.empty() || !ptp.ports.empty();
}

std::string ptpState(const PtpCommonInfo& ptp) {
    if (!isReported(ptp)) {
        return "not reported";
    }
    return ptp.locked ? "locked, offset " + nanoseconds(ptp.offsetNs) : "not locked";
}

std::string nanoseconds(std::int64_t value) {
    return std::to_string(value) + " ns";
}

} // namespace kaiklactl
