#include "platform/records/JsonText.hpp"
#include "tests/support/ServiceTest.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kNewSession = AvmgrPublisher::avmgr_new_session;
constexpr auto kRemoved = AvmgrPublisher::avmgr_removed_session;
constexpr auto kStatus = AvmgrPublisher::avmgr_session_status;
constexpr auto kDynamic = SysmgrPublisher::sysmgr_dynamic_information_update;
constexpr auto kPtpStatus = ZatPmcPublisher::zat_pmc_status_change;
constexpr auto kPtpConfig = ZatPmcPublisher::zat_pmc_configuration_change;

class EventsTest : public ServiceTest {
protected:
    void SetUp() override { startAll(); }

    /// The log since the last call, without the lines of the loop and of lists.
    std::vector<std::string> newLines() {
        std::vector<std::string> lines = log();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(seen));
        seen += lines.size();
        std::erase(lines, "DBG WebNotifierServer: something received");
        std::erase(lines, "DBG command 3 (GET Server list) carried out");
        return lines;
    }

    static std::string published(const Consumer& consumer, const std::string& message) {
        return "INF Publishing message to socket (" + consumer.address() + ") size " +
               std::to_string(message.size());
    }

private:
    std::size_t seen = 0;
};

TEST_F(EventsTest, SessionsAreStoredAndPublishedBareAndRemovedSilently) {
    Consumer consumer(context);
    registerAndGreet(consumer);
    newLines();
    session->send(
        kNewSession,
        R"({"id":7,"nmos_id":"n","audio":[{"id":11},{"id":12}],"video":[{"id":5,"type":"x"}]})");
    const std::string created =
        R"({"command_id":1,"command_name":"status-session","payload":{"device_id":"dev","id":7,)"
        R"("nmos_id":"n","stream":[{"id":11},{"id":12},{"id":5}]}})";
    EXPECT_EQ(consumer.receiveText(), created);
    EXPECT_THAT(newLines(),
                ElementsAre("INF avmgrNotifyNewSessionEvent:: session 7",
                            "INF avmgrNotifyUpdateSessionStatusEvent:: session 7 - NMOS n",
                            published(consumer, created)));

    session->send(kStatus, R"({"id":8,"device_id":"dev"})");
    session->send(kStatus, R"({"id":7,"device_id":"dev","alarms":[{"type":1}]})");
    const std::string changed =
        R"({"command_id":1,"command_name":"status-session","payload":{"alarms":[)"
        R"({"description":"","severity":"warning","type":1}],"device_id":"dev","id":7,)"
        R"("nmos_id":""}})";
    EXPECT_EQ(consumer.receive()["payload"]["id"], 8);
    EXPECT_EQ(consumer.receiveText(), changed);
    EXPECT_THAT(sessionIds(), ElementsAre(8, 7));

    newLines();
    session->send(kRemoved, R"({"id":99})");
    session->send(kRemoved, R"({"id":8})");
    session->send(kStatus, R"({"id":9,"device_id":"dev"})");
    EXPECT_EQ(consumer.receive()["payload"]["id"], 9);
    EXPECT_THAT(sessionIds(), ElementsAre(7, 9));
    const auto lines = newLines();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0], "INF avmgrNotifyRemovedSessionEvent:: session 99");
    EXPECT_EQ(lines[1], "INF avmgrNotifyRemovedSessionEvent:: session 8");
}

TEST_F(EventsTest, PtpAndCountedPortChangesPublishTheWholeDocumentToEveryone) {
    Consumer one(context);
    Consumer two(context);
    registerAndGreet(one);
    registerAndGreet(two);
    newLines();
    const auto expectStatusAll = [&] {
        std::string message = R"({"command_id":0,"command_name":"status-all","payload":)" +
                              toCompactJson(document()) + "}";
        EXPECT_EQ(one.receiveText(), message);
        EXPECT_EQ(two.receiveText(), message);
        return message;
    };
    ptp->send(kPtpStatus, R"({"locked":true,"ports":[{"portNumber":1}]})");
    ASSERT_TRUE(service->waitForError("zatPmcPtpStatusChangeEvent:: PTP changed"));
    const std::string message = expectStatusAll();
    const auto [low, high] = std::minmax(one.address(), two.address());
    const std::string size = ") size " + std::to_string(message.size());
    EXPECT_THAT(newLines(), ElementsAre("INF zatPmcPtpStatusChangeEvent:: PTP changed",
                                        "INF Publishing message to socket (" + low + size,
                                        "INF Publishing message to socket (" + high + size,
                                        "DBG command 0 (GET device status) carried out"));
    // The same once more is published once more.
    ptp->send(kPtpStatus, R"({"locked":true,"ports":[{"portNumber":1}]})");
    EXPECT_EQ(expectStatusAll(), message);
    ptp->send(kPtpConfig, R"({"ports":[{"portNumber":1,"portSetting2":6}]})");
    ASSERT_TRUE(service->waitForError("zatPmcPtpConfigChangeEvent:: PTP changed"));
    expectStatusAll();
    EXPECT_EQ(document()["ptp"]["locked"], true);
    EXPECT_EQ(document()["ptp"]["ports"][0]["portSetting2"], 6);

    system->send(kDynamic, R"({"eths":[{"name":"eth0","state":1,"ip":"old"}],"uptime_s":1})");
    ASSERT_TRUE(service->waitForError("information did change"));
    expectStatusAll();
    system->send(kDynamic, R"({"eths":[{"name":"eth0","state":1,"ip":"new"}],"uptime_s":2})");
    ASSERT_TRUE(service->waitForError("information didn't change"));
    EXPECT_EQ(document()["eths"][0]["ip"], "old");
    system->send(kDynamic, "{}");
    ASSERT_TRUE(service->waitForError("information did change", 2));
    expectStatusAll();
    EXPECT_FALSE(document().isMember("eths"));
}

TEST_F(EventsTest, KindsThatNobodyAskedForDoNotArrive) {
    session->send(AvmgrPublisher::avmgr_session_configuration_update, R"({"id":7})");
    session->send(AvmgrPublisher::avmgr_new_advertisement, R"({"id":7})");
    session->send(kStatus, R"({"id":1,"device_id":"dev"})");
    ASSERT_TRUE(service->waitForError("session 1 - NMOS"));
    EXPECT_THAT(sessionIds(), ElementsAre(1));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(EventsTest, BadNotificationGivesOneLineAndChangesNothing) {
    session->send(kStatus, R"({"id":1,"device_id":"dev","stream":[{"id":2}]})");
    ASSERT_TRUE(service->waitForError("session 1 - NMOS"));
    const Json::Value before = document();
    struct Row {
        std::optional<PlayedPublisher>& publisher;
        std::string name;
        unsigned kind;
        const char* payload;
    };
    int count = 0;
    for (const Row& row : {
             Row{session, "session manager", kNewSession, R"({"id":"x"})"},
             Row{session, "session manager", kNewSession, R"({"id":1,"audio":[{"id":-1}]})"},
             Row{session, "session manager", kNewSession,
                 R"({"id":1,"audio":[{"id":2},{"id":3,"ttl":-1}]})"},
             Row{session, "session manager", kNewSession, R"({"id":1,"audio":[{"sscr":"1"}]})"},
             Row{session, "session manager", kNewSession, R"({"id":1,"audio":[{"vlan":[]}]})"},
             Row{session, "session manager", kNewSession, R"({"id":1,"audio":[{"channels":[5]}]})"},
             Row{session, "session manager", kNewSession, R"({"id":1,"video":[6]})"},
             Row{session, "session manager", kRemoved, R"({"id":-1})"},
             Row{session, "session manager", kStatus, R"({"id":1,"stream":[{"id":3},5]})"},
             Row{session, "session manager", kStatus, R"({"id":1,"nmos_id":"cut)"},
             Row{system, "system manager", kDynamic, R"({"eths":[{},{"sfp":1}]})"},
             Row{ptp, "PTP management", kPtpStatus, R"({"locked":true,"ports":{"a":1}})"},
             Row{ptp, "PTP management", kPtpConfig, R"({"cfgSetting1":1,"ports":[1]})"},
         }) {
        row.publisher->send(row.kind, row.payload);
        ASSERT_TRUE(service->waitForError(" dropped: ", ++count));
        EXPECT_THAT(errors().back(), testing::StartsWith(row.name + ": notification " +
                                                         std::to_string(row.kind) + " dropped: "));
        EXPECT_EQ(document(), before);
    }
    EXPECT_EQ(errors().size(), static_cast<std::size_t>(count));

    // An address that is none is no such fault: it is logged, and the rest counts.
    session->send(kNewSession, R"({"id":1,"audio":[{"id":2,"local":"10.0.0.300"}]})");
    ASSERT_TRUE(service->waitForError("StatusEvent:: session 1 - NMOS", 2));
    EXPECT_EQ(errors().back(), "Error parsing IP [10.0.0.300]: invalid IP address");
}

TEST_F(EventsTest, WhatIsReadyTogetherIsHandledInTheOrderOfThePollSet) {
    node->staySilent();
    ptp->send(kPtpStatus, "{}");
    ASSERT_TRUE(node->waitForRequests(1));
    // While the service waits for the node, the others become ready.
    system->send(kDynamic, R"({"eths":[{}]})");
    session->send(kStatus, R"({"id":1,"device_id":"dev"})");
    zmq::socket_t requester(context, zmq::socket_type::req);
    requester.set(zmq::sockopt::linger, 0);
    requester.connect(platform_protocol::kCommandEndpoint);
    requester.send(zmq::str_buffer(R"({"command_id":2})"), zmq::send_flags::none);
    zmq_poll(nullptr, 0, 200);
    node->answerRequest(0, PlayedNmosNode::deviceAnswer("dev"));
    ASSERT_TRUE(service->waitForError("information did change"));
    const auto lines = log();
    const auto together = std::find(lines.begin(), lines.end(),
                                    "VERBOSE WebNotifierServer: Poll event received: 3 events");
    ASSERT_GE(lines.end() - together, 4);
    EXPECT_THAT(std::vector<std::string>(together - 1, together + 4),
                ElementsAre("DBG WebNotifierServer: something received",
                            "VERBOSE WebNotifierServer: Poll event received: 3 events",
                            "DBG command 2 (Remove remote info consumer) carried out",
                            "INF avmgrNotifyUpdateSessionStatusEvent:: session 1 - NMOS ",
                            "DBG notifyDynamicInfoUpdate:: information did change"));
}

} // namespace
