#include "handler/WebNotifierHandler.hpp"

#include "handler/WebNotifierCommand.hpp"
#include "handler/WebNotifierPublishCommand.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/api/ResultCode.hpp"
#include "tests/support/LogLines.hpp"
#include "tests/support/RecordText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

/// A handler that has no sockets: its callbacks change the document, nobody is told.
class HandlerTest : public testing::Test {
protected:
    Json::Value document() {
        IpcMsg request;
        request.commandId = WebNotifierCommand::get_device_status;
        Json::Value reply;
        bool replyWanted = false;
        EXPECT_EQ(handler.ipcProcessMsg(request, reply, replyWanted), 0);
        EXPECT_TRUE(replyWanted);
        return reply["status"];
    }

    int newSession(const std::string& text) {
        auto config = recordFrom<SessionConfigData>(text);
        return handler.avmgrNotifyNewSessionEvent(config);
    }
    int sessionStatus(const std::string& text) {
        auto status = recordFrom<SessionStatusData>(text);
        return handler.avmgrNotifyUpdateSessionStatusEvent(status);
    }
    int removedSession(unsigned long long id) { return handler.avmgrNotifyRemovedSessionEvent(id); }
    int ptpStatus(const std::string& text) {
        auto status = recordFrom<PtpCommonInfo>(text);
        return handler.zatPmcPtpStatusChangeEvent(status);
    }
    int ptpConfig(const std::string& text) {
        auto config = recordFrom<ZatPmcPtpCfg>(text);
        return handler.zatPmcPtpConfigChangeEvent(config);
    }
    int ethernetPorts(const std::string& array) {
        auto information = recordFrom<SysParametersDynamic>(R"({"eths":)" + array + "}");
        return handler.notifyDynamicInfoUpdate(information);
    }

    /// From here on the device id is known, so that nothing fails.
    void knowTheDevice() {
        ASSERT_EQ(sessionStatus(R"({"id":1,"device_id":"dev"})"), 0);
        ASSERT_EQ(removedSession(1), 0);
        log.lines();
    }

    std::vector<std::uint64_t> sessionIds() {
        std::vector<std::uint64_t> ids;
        const Json::Value sessions = document()["sessions"];
        for (const Json::Value& session : sessions) {
            ids.push_back(session["id"].asUInt64());
        }
        return ids;
    }

    WebNotifierHandler handler;
    CapturedLog log;
};

std::string chk(const std::string& signature, int code) {
    return "ERR CHK(" + signature + ")::# Error Code " + std::to_string(code);
}

TEST(Vocabulary, TablesHoldTheseNamesAndNoOthers) {
    std::string name = "x";
    unsigned id = 0;
    for (const char* expected : {"GET device status", "Add remote info consumer",
                                 "Remove remote info consumer", "GET Server list"}) {
        EXPECT_EQ(WebNotifierCommand::getCommandNameStr(id++, name), 0);
        EXPECT_EQ(name, expected);
    }
    EXPECT_EQ(WebNotifierCommand::getCommandNameStr(4, name), result_code::kUnknownId);
    EXPECT_EQ(name, "GET Server list");

    using Published = WebNotifierPublishCommand;
    IpcMsg message;
    EXPECT_EQ(Published::getCommandStr(Published::status_all, message), 0);
    EXPECT_EQ(textOf(message), R"({"command_id":0,"command_name":"status-all","payload":null})");
    const std::string session =
        R"({"command_id":1,"command_name":"status-session","payload":null})";
    EXPECT_EQ(Published::getCommandStr(Published::status_session, message), 0);
    EXPECT_EQ(textOf(message), session);
    const auto unknown = static_cast<Published::webnotifier_publish_command_id_t>(2);
    EXPECT_EQ(Published::getCommandStr(unknown, message), result_code::kUnknownId);
    EXPECT_EQ(textOf(message), session);
}

TEST_F(HandlerTest, DescriptionReplacesForAKnownIdAndIsAppendedForAnUnknownOne) {
    for (const auto& [id, expected] :
         std::map<unsigned, std::string>{{0, "GET device status"},
                                         {3, "GET Server list"},
                                         {4, "xnot recognized"},
                                         {4294967295, "xnot recognized"}}) {
        std::string description = "x";
        EXPECT_EQ(handler.getCommandDescription(id, description), 0);
        EXPECT_EQ(description, expected);
    }
}

TEST_F(HandlerTest, UnknownCommandIsRefusedWithAnEmptyReply) {
    for (const auto& [id, shown] : std::map<unsigned, std::string>{{4, "4"}, {4294967295, "-1"}}) {
        IpcMsg request;
        request.commandId = id;
        Json::Value reply;
        bool replyWanted = false;
        EXPECT_EQ(handler.ipcProcessMsg(request, reply, replyWanted), result_code::kUnknownId);
        EXPECT_TRUE(replyWanted);
        EXPECT_TRUE(reply.isNull());
        EXPECT_THAT(log.lines(),
                    ElementsAre("ERR WebnotifierHandler command " + shown + " is not recognized."));
    }
}

TEST_F(HandlerTest, ChangedSessionMovesToTheEndAndIsHeldOnce) {
    for (const char* id : {"1", "2", "3", "1", "18446744073709551615"}) {
        EXPECT_EQ(sessionStatus(R"({"device_id":"dev","id":)" + std::string(id) + "}"), 0);
    }
    constexpr std::uint64_t kLargest = 18446744073709551615U;
    EXPECT_THAT(sessionIds(), ElementsAre(2, 3, 1, kLargest));
    EXPECT_EQ(newSession(R"({"id":3})"), 0);
    EXPECT_THAT(sessionIds(), ElementsAre(2, 1, kLargest, 3));
    log.lines();
    EXPECT_EQ(removedSession(7), result_code::kUnknownSession);
    EXPECT_EQ(removedSession(kLargest), 0);
    EXPECT_EQ(removedSession(kLargest), result_code::kUnknownSession);
    EXPECT_THAT(sessionIds(), ElementsAre(2, 1, 3));
    EXPECT_THAT(log.lines(), ElementsAre("INF avmgrNotifyRemovedSessionEvent:: session 7",
                                         "INF avmgrNotifyRemovedSessionEvent:: session -1",
                                         "INF avmgrNotifyRemovedSessionEvent:: session -1"));
}

TEST_F(HandlerTest, StatusDecidesTheDocumentsDeviceIdAlsoWhenItIsEmpty) {
    EXPECT_EQ(sessionStatus(R"({"id":1,"device_id":"one"})"), 0);
    EXPECT_EQ(sessionStatus(R"({"id":2,"device_id":"two"})"), 0);
    EXPECT_EQ(document()["device_id"], "two");
    EXPECT_EQ(sessionStatus(R"({"id":1})"), platform_protocol::kErrorUnreachable);
    EXPECT_EQ(document()["device_id"], "");
    EXPECT_EQ(document()["sessions"].size(), 2U);
}

TEST_F(HandlerTest, OverrideOfADerivedHandlerGetsTheNewSessionsStatus) {
    class Derived : public WebNotifierHandler {
    public:
        int avmgrNotifyUpdateSessionStatusEvent(SessionStatusData& status) override {
            seen = textOf(status);
            return -7;
        }
        std::string seen;
    };
    Derived derived;
    auto seed = recordFrom<SessionStatusData>(R"({"device_id":"dev"})");
    ASSERT_EQ(derived.WebNotifierHandler::avmgrNotifyUpdateSessionStatusEvent(seed), 0);
    log.lines();
    auto config = recordFrom<SessionConfigData>(R"({"id":5,"nmos_id":"n"})");
    EXPECT_EQ(derived.avmgrNotifyNewSessionEvent(config), -7);
    EXPECT_EQ(derived.seen, R"({"device_id":"dev","id":5,"nmos_id":"n"})");
    EXPECT_THAT(log.lines(),
                ElementsAre("INF avmgrNotifyNewSessionEvent:: session 5",
                            chk("virtual int WebNotifierHandler::avmgrNotifyNewSessionEvent("
                                "SessionConfigData&)",
                                -7)));
}

TEST_F(HandlerTest, WithoutADeviceIdEachEventFailsWithAChainOfChecks) {
    const int code = platform_protocol::kErrorUnreachable;
    const std::vector<std::string> asked = {
        "INF checkIfDeviceIdIsDefined:: device id is not defined. asking for it.",
        "ERR request to " + std::string(platform_protocol::kNmosNodeEndpoint) + ": not initialised",
        chk("int WebNotifierHandler::checkIfDeviceIdIsDefined()", code)};
    const std::string notPublished =
        chk("int WebNotifierHandler::publishAllDeviceStatus(std::string)", code);
    const auto logged = [&](const std::string& first, std::vector<std::string> checks) {
        std::vector<std::string> lines = {first};
        lines.insert(lines.end(), asked.begin(), asked.end());
        checks.back() = chk("virtual int WebNotifierHandler::" + checks.back(), code);
        lines.insert(lines.end(), checks.begin(), checks.end());
        return lines;
    };

    EXPECT_EQ(newSession(R"({"id":1})"), code);
    EXPECT_EQ(log.lines(), logged("INF avmgrNotifyNewSessionEvent:: session 1",
                                  {"avmgrNotifyNewSessionEvent(SessionConfigData&)"}));
    EXPECT_EQ(sessionStatus(R"({"id":2})"), code);
    EXPECT_EQ(log.lines(), logged("INF avmgrNotifyUpdateSessionStatusEvent:: session 2 - NMOS ",
                                  {"avmgrNotifyUpdateSessionStatusEvent(SessionStatusData&)"}));
    EXPECT_EQ(ptpStatus(R"({"locked":true})"), code);
    EXPECT_EQ(log.lines(), logged("INF zatPmcPtpStatusChangeEvent:: PTP changed",
                                  {notPublished, "zatPmcPtpStatusChangeEvent(PtpCommonInfo&)"}));
    EXPECT_EQ(ptpConfig(R"({"cfgSetting1":3})"), code);
    EXPECT_EQ(log.lines(), logged("INF zatPmcPtpConfigChangeEvent:: PTP changed",
                                  {notPublished, "zatPmcPtpConfigChangeEvent(ZatPmcPtpCfg&)"}));
    EXPECT_EQ(ethernetPorts(R"([{"name":"eth0"}])"), code);
    EXPECT_EQ(log.lines(),
              logged("DBG notifyDynamicInfoUpdate:: information did change",
                     {notPublished, "notifyDynamicInfoUpdate(SysParametersDynamic&)"}));
    // The new session is not stored; everything else stays as it was when the failure came.
    EXPECT_THAT(sessionIds(), ElementsAre(2));
    EXPECT_EQ(document()["ptp"]["locked"], true);
    EXPECT_EQ(document()["ptp"]["cfgSetting1"], 3);
    EXPECT_EQ(document()["eths"][0]["name"], "eth0");
}

TEST_F(HandlerTest, PtpStatusReplacesTheWholeRecord) {
    knowTheDevice();
    EXPECT_EQ(ptpStatus(R"({"clock_id":"c","cfgSetting1":9,"ports":[{"portNumber":1},{}]})"), 0);
    EXPECT_EQ(ptpStatus(R"({"locked":true,"ports":[{"portNumber":2}]})"), 0);
    EXPECT_EQ(toCompactJson(document()["ptp"]),
              rewritten<PtpCommonInfo>(R"({"locked":true,"ports":[{"portNumber":2}]})"));
}

TEST_F(HandlerTest, PtpConfigurationSetsItsFieldsOnEveryPortOfTheSameNumber) {
    knowTheDevice();
    const std::string rest = R"(,"clock_id":"c","locked":true,"ports":[)";
    ASSERT_EQ(ptpStatus("{\"cfgFlag\":false" + rest +
                        R"({"portNumber":2},{"portNumber":200},{"portNumber":2},)"
                        R"({"portNumber":65480},{"portNumber":127}]})"),
              0);
    EXPECT_EQ(ptpConfig(R"({"cfgSetting1":1,"cfgSetting2":2,"cfgSetting3":3,"cfgFlag":-8,"ports":[)"
                        R"({"portNumber":2,"portSetting1":4,"portSetting2":5,"portSetting3":6},)"
                        R"({"portNumber":200,"portSetting1":9},{"portNumber":3,"portSetting1":9},)"
                        R"({"portNumber":127,"portSetting3":7}]})"),
              0);
    const std::string configured = R"(,"portSetting1":4,"portSetting2":5,"portSetting3":6})";
    EXPECT_EQ(toCompactJson(document()["ptp"]),
              rewritten<PtpCommonInfo>(
                  R"({"cfgSetting1":1,"cfgSetting2":2,"cfgSetting3":3,"cfgFlag":true)" + rest +
                  R"({"portNumber":2)" + configured + R"(,{"portNumber":200},{"portNumber":2)" +
                  configured + R"(,{"portNumber":65480},{"portNumber":127,"portSetting3":7}]})"));
    EXPECT_EQ(ptpConfig("{}"), 0);
    EXPECT_EQ(document()["ptp"]["cfgFlag"], false);
    EXPECT_EQ(document()["ptp"]["cfgSetting3"], 0);
    EXPECT_EQ(document()["ptp"]["ports"][0]["portSetting1"], 4);
}

TEST_F(HandlerTest, OnlyNumberNamesAndStatesOfEthernetPortsCountAsAChange) {
    knowTheDevice();
    struct Row {
        const char* known;
        const char* reported;
        bool changed;
    };
    for (const Row& row : {
             Row{"[]", "[]", false},
             Row{"[]", R"([{"name":"P"}])", true},
             Row{R"([{"name":"P"}])", "[]", true},
             Row{R"([{"name":"P","state":1}])", R"([{"name":"P","state":1,"ip":"x"}])", false},
             Row{R"([{"name":"P","state":1}])", R"([{"name":"P","state":257}])", false},
             Row{R"([{"name":"P","state":1}])", R"([{"name":"P","state":0}])", true},
             Row{R"([{"name":"P"}])", R"([{"name":"p"}])", true},
             Row{R"([{"name":"P"}])", R"([{"name":"P "}])", true},
             Row{R"([{"name":"P"},{"name":"Q"}])", R"([{"name":"Q"},{"name":"P"}])", false},
             Row{R"([{"name":"P"},{"name":"P"}])", R"([{"name":"P"},{"name":"Q"}])", false},
             Row{R"([{"name":"P"},{"name":"Q"}])", R"([{"name":"P"},{"name":"P"}])", true},
             Row{R"([{"name":"P"},{"name":"Q","state":1}])", R"([{"name":"P"},{"name":"Q"}])",
                 true},
             Row{R"([{"name":"P"},{"name":"P","state":1}])",
                 R"([{"name":"P"},{"name":"P","state":1}])", true},
         }) {
        ASSERT_EQ(ethernetPorts("[{},{},{}]"), 0);
        ASSERT_EQ(ethernetPorts(row.known), 0);
        const Json::Value before = document();
        log.lines();
        EXPECT_EQ(ethernetPorts(row.reported), 0);
        EXPECT_THAT(log.lines(), ElementsAre(std::string("DBG notifyDynamicInfoUpdate:: "
                                                         "information ") +
                                             (row.changed ? "did" : "didn't") + " change"));
        const auto reported =
            recordFrom<WebNotifierDeviceStatus>(R"({"eths":)" + std::string(row.reported) + "}");
        Json::Value expected;
        reported.Serialize(expected);
        EXPECT_EQ(document()["eths"], row.changed ? expected["eths"] : before["eths"])
            << row.known << row.reported;
    }
    ethernetPorts("[]");
    EXPECT_FALSE(document().isMember("eths"));
}

TEST_F(HandlerTest, ItemOfNobodyIsDeclined) {
    int stranger = 0;
    EXPECT_FALSE(handler.processIncomingEvents({&stranger, -1, ZMQ_POLLIN, ZMQ_POLLIN}));
    EXPECT_FALSE(handler.processIncomingEvents({nullptr, 0, ZMQ_POLLIN, ZMQ_POLLIN}));
}

} // namespace
