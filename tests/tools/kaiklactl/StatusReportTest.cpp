#include "tools/kaiklactl/StatusReport.hpp"

#include "tools/kaiklactl/MessageLine.hpp"
#include "tools/client/ServiceConnection.hpp"
#include "tools/kaiklactl/TerminalText.hpp"

#include <gmock/gmock.h>

using kaiklactl::statusReport;
using testing::HasSubstr;

namespace {

WebNotifierDeviceStatus statusOf(const std::string& json) {
    Json::Value document = client::readObject(json);
    WebNotifierDeviceStatus status;
    status.Deserialize(document);
    return status;
}

constexpr const char* kDocument = R"({
    "device_id": "dev",
    "eths": [{"name": "Anschluß", "mac": "m0", "state": 1, "ip": "192.0.2.1", "speed_mbps": 25000},
             {"name": "eth1", "mac": "m1", "state": 0, "ip": "198.51.100.1", "speed_mbps": 0,
              "sfp": {"present": true, "vendor": "V", "part_number": "P", "temperature_c": 38.55,
                      "tx_power_dbm": -1, "rx_power_dbm": -40}}],
    "ptp": {"clock_id": "c", "grandmaster_id": "g", "locked": true, "offset_ns": -12,
            "mean_path_delay_ns": 600, "profile": {"name": "p", "domain": 127},
            "ports": [{"portNumber": 1, "state": "SLAVE"}]},
    "sessions": [{"id": 7, "nmos_id": "n7", "stream": [
                     {"id": 11},
                     {"id": 12, "alarms": [{"description": "late", "type": 5},
                                           {"severity": "major", "description": "lost"}]}]},
                 {"id": 8, "alarms": [{"severity": "", "description": "\u001b[0mX"}]}]})";

TEST(StatusReport, alignsTablesAndMarksWhatIsWrong) {
    EXPECT_EQ(statusReport(statusOf(kDocument), false),
              R"(Device    dev
PTP       locked, offset -12 ns, path delay 600 ns
          grandmaster g, clock c
          profile p, domain 127
Sessions  2
Alarms    ! 3

PTP PORT  STATE
1         SLAVE

PORT      STATE   SPEED       ADDRESS       MAC  SFP
Anschluß  up      25000 Mb/s  192.0.2.1     m0   none
eth1      ! down  0 Mb/s      198.51.100.1  m1   V P, 38.5 °C, tx -1.0 dBm, rx -40.0 dBm

SESSION  NMOS ID  STREAM  ALARMS
7        n7       all     none
                  11      none
                  12      ! warning: late (type 5)
                          ! major: lost (type 0)
8        none     all     ! : \x1b[0mX (type 0)
)");
}

TEST(StatusReport, saysWhatIsNotKnownYet) {
    EXPECT_EQ(statusReport(WebNotifierDeviceStatus(), false), R"(Device    unknown
PTP       not reported
Sessions  none
Alarms    none
)");
    EXPECT_THAT(statusReport(statusOf(R"({"ptp":{"clock_id":"c"}})"), false),
                HasSubstr("PTP       ! not locked\n          grandmaster none, clock c\n"));
}

TEST(StatusReport, paintsWithoutMovingAColumn) {
    const std::string plain = statusReport(statusOf(kDocument), false);
    std::string painted = statusReport(statusOf(kDocument), true);
    EXPECT_THAT(painted, HasSubstr("\x1b[1;31m! major: lost (type 0)\x1b[0m"));
    EXPECT_THAT(painted, HasSubstr("\x1b[33m! warning: late (type 5)\x1b[0m"));
    for (auto start = painted.find('\x1b'); start != std::string::npos;
         start = painted.find('\x1b')) {
        painted.erase(start, painted.find('m', start) - start + 1);
    }
    EXPECT_EQ(painted, plain);
}

TEST(TerminalText, countsColumnsAndNotBytes) {
    const auto columns = [](const char* text) { return kaiklactl::printable(text).columns; };
    EXPECT_EQ(columns("abc"), 3U);
    EXPECT_EQ(columns("äöü"), 3U);
    EXPECT_EQ(columns("日本"), 4U);
    EXPECT_EQ(columns("e\u0301"), 1U) << "a combining accent takes no column of its own";
    EXPECT_EQ(columns("\xff\xc3"), 8U) << "two bytes that are no UTF-8 are shown as \\xff\\xc3";
    EXPECT_EQ(kaiklactl::printable("\xff\xc3").text, R"(\xff\xc3)");
}

} // namespace
