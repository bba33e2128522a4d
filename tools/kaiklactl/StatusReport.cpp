#include "tools/kaiklactl/StatusReport.hpp"

#include "tools/kaiklactl/Terminal.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <list>
#include <utility>
#include <vector>

namespace kaiklactl {
namespace {

/// One field of a table. The text may come from the network.
struct Cell {
    Cell(std::string content,
         Style contentStyle = Style::plain) // NOLINT(google-explicit-constructor)
        : text(std::move(content)), style(contentStyle) {}
    Cell(const char* content) : text(content) {} // NOLINT(google-explicit-constructor)

    std::string text;
    Style style = Style::plain;
};

/// Rows of left-aligned columns, as wide as their widest field, two blanks apart.
class Table {
public:
    Table() = default;
    explicit Table(const std::vector<std::string>& headings);

    /// Rows need not have the same number of fields.
    void add(const std::vector<Cell>& row);

    /// One line a row, without blanks at their ends.
    std::string text(bool colour) const;

private:
    struct Field {
        PrintableText content;
        Style style;
    };
    std::vector<std::vector<Field>> rows;
};

Table::Table(const std::vector<std::string>& headings) {
    std::vector<Cell> row;
    row.reserve(headings.size());
    for (const std::string& heading : headings) {
        row.emplace_back(heading, Style::heading);
    }
    add(row);
}

void Table::add(const std::vector<Cell>& row) {
    std::vector<Field>& fields = rows.emplace_back();
    fields.reserve(row.size());
    for (const Cell& cell : row) {
        fields.push_back({printable(cell.text), cell.style});
    }
}

std::string Table::text(bool colour) const {
    constexpr std::size_t kGap = 2;
    std::vector<std::size_t> widths;
    for (const std::vector<Field>& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].content.columns);
        }
    }
    std::string text;
    for (const std::vector<Field>& row : rows) {
        std::size_t blanks = 0;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const PrintableText& content = row[i].content;
            if (!content.text.empty()) {
                text.append(blanks, ' ');
                text += painted(content.text, row[i].style, colour);
                blanks = 0;
            }
            blanks += widths[i] - content.columns + kGap;
        }
        text += '\n';
    }
    return text;
}

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

Table summaryTable(const WebNotifierDeviceStatus& status) {
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
    std::string report = summaryTable(status).text(colour);
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
    case EthBasicInfo::down:
        return "down";
    case EthBasicInfo::up:
        return "up";
    default:
        return "state " + std::to_string(port.state);
    }
}

bool isUp(const EthBasicInfo& port) {
    return port.state == EthBasicInfo::up;
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
