#include "tools/kaiklactl/StatusReport.hpp"

#include "tools/kaiklactl/Table.hpp"
#include "tools/kaiklactl/Wording.hpp"

#include <array>
#include <cstdio>
#include <list>

namespace kaiklactl {
namespace {

std::string oneDecimal(double value) {
    // The longest double takes 308 digits before its point.
    constexpr std::size_t kLongestNumber = 320;
    std::array<char, kLongestNumber> text{};
    std::snprintf(text.data(), text.size(), "%.1f", value);
    return text.data();
}

Cell ptpCell(const PtpCommonInfo& ptp) {
    if (ptp.locked) {
        return {ptpState(ptp) + ", path delay " + nanoseconds(ptp.meanPathDelayNs), Style::good};
    }
    return isReported(ptp) ? Cell("! " + ptpState(ptp), Style::alarm)
                           : Cell(ptpState(ptp), Style::warning);
}

std::string orNone(const std::string& text) {
    return text.empty() ? "none" : text;
}

Table summary(const WebNotifierDeviceStatus& status) {
    Table table;
    const PtpCommonInfo& ptp = status.ptp;
    table.add({"Device",
               status.deviceId.empty() ? Cell("unknown", Style::warning) : Cell(status.deviceId)});
    table.add({"PTP", ptpCell(ptp)});
    if (isReported(ptp)) {
        table.add(
            {"", "grandmaster " + orNone(ptp.grandmasterId) + ", clock " + orNone(ptp.clockId)});
        table.add({"", "profile " + orNone(ptp.profile.name) + ", domain " +
                           std::to_string(ptp.profile.domain)});
    }
    table.add({"Sessions",
               orNone(status.sessions.empty() ? "" : std::to_string(status.sessions.size()))});
    const std::size_t alarms = alarmCount(status);
    table.add({"Alarms", alarms == 0 ? Cell("none", Style::good)
                                     : Cell("! " + std::to_string(alarms), Style::alarm)});
    return table;
}

Table ptpPorts(const std::list<PtpBasePortInfo>& ports) {
    Table table({"PTP PORT", "STATE"});
    for (const PtpBasePortInfo& port : ports) {
        table.add({std::to_string(port.portNumber), port.state});
    }
    return table;
}

std::string transceiver(const SfpInfo& sfp) {
    if (!sfp.present) {
        return "none";
    }
    return sfp.vendor + " " + sfp.partNumber + ", " + oneDecimal(sfp.temperatureC) + " °C, tx " +
           oneDecimal(sfp.txPowerDbm) + " dBm, rx " + oneDecimal(sfp.rxPowerDbm) + " dBm";
}

Table ethernetPorts(const std::list<EthBasicInfo>& ports) {
    Table table({"PORT", "STATE", "SPEED", "ADDRESS", "MAC", "SFP"});
    for (const EthBasicInfo& port : ports) {
        table.add({port.name,
                   isUp(port) ? Cell(portState(port), Style::good)
                              : Cell("! " + portState(port), Style::alarm),
                   std::to_string(port.speedMbps) + " Mb/s", port.ip, port.mac,
                   transceiver(port.sfp)});
    }
    return table;
}

/// A row for each alarm, or one row that says there is none.
void addAlarms(Table& table, Cell session, Cell nmosId, Cell stream,
               const std::list<StreamAlarmData>& alarms) {
    if (alarms.empty()) {
        table.add({session, nmosId, stream, "none"});
        return;
    }
    for (const StreamAlarmData& alarm : alarms) {
        const Style style = alarm.severity == "warning" ? Style::warning : Style::alarm;
        table.add({session, nmosId, stream, {"! " + alarmText(alarm), style}});
        session = nmosId = stream = "";
    }
}

Table sessions(const std::list<SessionStatusData>& sessions) {
    Table table({"SESSION", "NMOS ID", "STREAM", "ALARMS"});
    for (const SessionStatusData& session : sessions) {
        addAlarms(table, std::to_string(session.id), orNone(session.nmosId), "all", session.alarms);
        for (const StreamStatusData& stream : session.streams) {
            addAlarms(table, "", "", std::to_string(stream.id), stream.alarms);
        }
    }
    return table;
}

} // namespace

std::string statusReport(const WebNotifierDeviceStatus& status, bool colour) {
    std::string report = summary(status).text(colour);
    if (!status.ptp.ports.empty()) {
        report += '\n' + ptpPorts(status.ptp.ports).text(colour);
    }
    if (!status.eths.empty()) {
        report += '\n' + ethernetPorts(status.eths).text(colour);
    }
    if (!status.sessions.empty()) {
        report += '\n' + sessions(status.sessions).text(colour);
    }
    return report;
}

} // namespace kaiklactl
