#include "tools/kaiklactl/MessageLine.hpp"

#include "platform/records/JsonText.hpp"
#include "tools/client/ServiceConnection.hpp"

#include <gmock/gmock.h>

#include <regex>

using kaiklactl::messageLine;
using kaiklactl::StatusHistory;
using testing::HasSubstr;
using testing::Not;

namespace {

Json::Value parsed(const std::string& text) {
    return client::readObject(text);
}

/// A consumer that has the whole status and then gets changed versions of it.
class MessageLine : public testing::Test {
protected:
    std::string lineOf(const std::string& frame) {
        return messageLine(frame, std::chrono::system_clock::now(), history);
    }

    /// What the line says after time and kind.
    std::string words(const std::string& frame) {
        constexpr std::size_t kColumns = sizeof("12:34:56.789  status-session  ") - 1;
        return lineOf(frame).substr(kColumns);
    }
    std::string whole() {
        Json::Value message;
        message["command_id"] = 0;
        message["command_name"] = "status-all";
        message["payload"] = status;
        return words(toCompactJson(message));
    }
    std::string session(const std::string& json) {
        return words(R"({"command_id":1,"command_name":"status-session","payload":)" + json + "}");
    }

    StatusHistory history;
    Json::Value status = parsed(R"({
        "device_id": "dev",
        "eths": [{"name": "eth0", "state": 1, "ip": "192.0.2.1", "speed_mbps": 25000},
                 {"name": "eth1", "state": 1}],
        "ptp": {"clock_id": "c", "grandmaster_id": "g", "locked": true, "offset_ns": 12,
                "mean_path_delay_ns": 600, "profile": {"name": "p", "domain": 1},
                "ports": [{"portNumber": 1, "state": "SLAVE", "portSetting1": 1}]},
        "sessions": [{"id": 7, "nmos_id": "n", "device_id": "dev",
                      "stream": [{"id": 11}, {"id": 12}]}]})");
};

TEST_F(MessageLine, startsWithTimeAndKind) {
    const std::string line = lineOf(R"({"command_id":0,"command_name":"status-all","payload":{}})");
    EXPECT_TRUE(std::regex_match(
        line, std::regex(R"(\d\d:\d\d:\d\d\.\d\d\d  status-all      whole status: .*)")))
        << line;
}

TEST_F(MessageLine, sumsUpTheFirstWholeStatusAndTheOneAfterARestart) {
    EXPECT_EQ(whole(), "whole status: 1 session, no alarm, PTP locked, offset 12 ns, 2 ports, "
                       "device dev");
    status["sessions"][0]["alarms"] = parsed(R"({"a": [{}]})")["a"];
    status["eths"][1]["state"] = 0;
    status["ptp"]["locked"] = false;
    history.forget();
    EXPECT_EQ(whole(), "whole status: 1 session, 1 alarm, PTP not locked, 2 ports, port eth1 down, "
                       "device dev");
    history.forget();
    EXPECT_EQ(words(R"({"command_id":0,"payload":{}})"),
              "whole status: 0 sessions, no alarm, PTP not reported, 0 ports, device unknown");
}

TEST_F(MessageLine, namesWhatChangedInTheClock) {
    whole();
    EXPECT_EQ(whole(), "nothing new");
    const auto after = [this](const char* key, const Json::Value& value) {
        status["ptp"][key] = value;
        return whole();
    };
    EXPECT_EQ(after("locked", false), "PTP lost its lock");
    EXPECT_EQ(after("offset_ns", -1840), "PTP offset -1840 ns");
    status["ptp"]["offset_ns"] = 9;
    EXPECT_EQ(after("locked", true), "PTP locked, offset 9 ns");
    EXPECT_EQ(after("mean_path_delay_ns", 640), "PTP path delay 640 ns");
    EXPECT_EQ(after("grandmaster_id", "h"), "PTP grandmaster h");
    EXPECT_EQ(after("grandmaster_id", ""), "PTP grandmaster none");
    EXPECT_EQ(after("clock_id", "d"), "PTP clock d");
    EXPECT_EQ(after("cfgSetting2", 3), "PTP configuration changed");
    status["ptp"]["ports"][0]["portSetting1"] = 2;
    EXPECT_EQ(whole(), "PTP configuration changed");
    status["ptp"]["profile"]["domain"] = 127;
    EXPECT_EQ(whole(), "PTP profile p, domain 127");
    status["ptp"]["ports"][0]["state"] = "LISTENING";
    status["ptp"]["ports"][1]["portNumber"] = 2;
    status["ptp"]["ports"][1]["state"] = "PASSIVE";
    EXPECT_EQ(whole(), "PTP port 1 LISTENING; PTP port 2 new, PASSIVE");
    status["ptp"].removeMember("ports");
    EXPECT_EQ(whole(), "PTP port 1 gone; PTP port 2 gone");
    const Json::Value reported = status["ptp"];
    status.removeMember("ptp");
    history.forget();
    whole();
    status["ptp"] = reported;
    EXPECT_EQ(whole(), "PTP reported: locked, offset 9 ns");
}

TEST_F(MessageLine, namesWhatChangedAtThePorts) {
    whole();
    Json::Value& port = status["eths"][0];
    port["state"] = 0;
    port["speed_mbps"] = 0;
    EXPECT_EQ(whole(), "port eth0 down");
    port["state"] = 1;
    EXPECT_EQ(whole(), "port eth0 up");
    port["speed_mbps"] = 10000;
    port["ip"] = "192.0.2.2";
    port["sfp"]["present"] = true;
    EXPECT_EQ(whole(),
              "port eth0 speed 10000 Mb/s; port eth0 address 192.0.2.2; port eth0 SFP inserted");
    status["eths"][1]["name"] = "eth2";
    status["eths"][1]["state"] = 7;
    EXPECT_EQ(whole(), "port eth2 new, state 7; port eth1 gone");
    std::swap(status["eths"][0], status["eths"][1]);
    EXPECT_EQ(whole(), "nothing new");
}

TEST_F(MessageLine, namesWhatChangedInASession) {
    whole();
    EXPECT_EQ(session(R"({"id":8,"stream":[{"id":1},{"id":2},{"id":3}]})"),
              "session 8 new (3 streams)");
    EXPECT_EQ(session(R"({"id":8,"stream":[{"id":1},{"id":2},{"id":3}]})"),
              "session 8 reported again");
    EXPECT_EQ(session(R"({"id":8,"nmos_id":"x","stream":[{"id":1},{"id":2,"alarms":[
                         {"description":"late","type":5}]}]})"),
              "session 8 NMOS id x; session 8 stream 2 alarm raised: warning: late (type 5); "
              "session 8 stream 3 gone");
    EXPECT_EQ(session(R"({"id":8,"nmos_id":"x","alarms":[{"severity":"major","description":"off"}],
                         "stream":[{"id":1},{"id":2,"alarms":[{"description":"lost","type":5}]}]})"),
              "session 8 alarm raised: major: off (type 0); "
              "session 8 stream 2 alarm raised: warning: lost (type 5); "
              "session 8 stream 2 alarm cleared: warning: late (type 5)");
    EXPECT_EQ(session(R"({"id":18446744073709551615,"stream":[{"id":4,"alarms":[{}]}]})"),
              "session 18446744073709551615 new (1 stream); session 18446744073709551615 stream 4 "
              "alarm raised: warning:  (type 0)");
}

TEST_F(MessageLine, findsARemovedSessionInTheNextWholeStatus) {
    whole();
    session(R"({"id":8,"device_id":"dev"})");
    status["sessions"][1]["id"] = 8;
    EXPECT_EQ(whole(), "nothing new") << "the two kinds of message describe the same sessions";
    status.removeMember("sessions");
    status["ptp"]["locked"] = false;
    EXPECT_EQ(whole(), "session 7 removed; session 8 removed; PTP lost its lock");
}

TEST_F(MessageLine, callsNoSessionNewBeforeItKnowsTheWholeStatus) {
    EXPECT_EQ(session(R"({"id":7,"stream":[{"id":1,"alarms":[{},{}]}]})"),
              "session 7: 1 stream, 2 alarms");
}

TEST_F(MessageLine, saysWhatAMalformedMessageIsAndForgetsNothing) {
    whole();
    for (const char* frame :
         {"", "nonsense", "[]", R"({"payload":{}})", R"({"command_id":-1})",
          R"({"command_id":0,"payload":7})", R"({"command_id":1,"payload":{"id":"seven"}})",
          R"({"command_id":0,"payload":{"sessions":[7]}})"}) {
        EXPECT_THAT(lineOf(frame), HasSubstr("  malformed       this message cannot be read: "))
            << frame;
    }
    EXPECT_THAT(lineOf(std::string(100000, '[')), HasSubstr("malformed"));
    EXPECT_EQ(words(R"({"command_id":9,"command_name":"x"})"),
              "a kind of message that this program does not know (9)");
    EXPECT_EQ(whole(), "nothing new");
}

TEST_F(MessageLine, letsNothingThroughThatMovesATerminalsCursor) {
    whole();
    const std::string line =
        session(R"({"id":7,"nmos_id":"\u001b[2J\nX\u009b31m\u202e\u0000é\ttail","stream":[]})");
    EXPECT_THAT(line, HasSubstr(R"(session 7 NMOS id \x1b[2J\nX\u009b31m\u202e\x00é\ttail)"));
    for (const char c : line) {
        EXPECT_FALSE(static_cast<unsigned char>(c) < ' ' || c == '\x7f') << line;
    }
    EXPECT_THAT(lineOf("{\"command_id\":0,\"command_name\":\"\x1b[31m\",\"payload\":{}}"),
                Not(HasSubstr("\x1b")));
}

} // namespace
