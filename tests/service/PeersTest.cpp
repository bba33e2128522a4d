#include "platform/records/JsonText.hpp"
#include "tests/support/ServiceTest.hpp"

namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr auto kStatus = AvmgrPublisher::avmgr_session_status;
constexpr auto kPtpStatus = ZatPmcPublisher::zat_pmc_status_change;

using PeersTest = ServiceTest;

TEST_F(PeersTest, EveryServiceMayBeAbsentComeLateAndComeBack) {
    startService();
    EXPECT_EQ(document()["device_id"], "");
    Consumer consumer(context);
    // Without the NMOS node nothing can be published, but the consumer is registered.
    ASSERT_EQ(add(consumer.address()), 0);
    EXPECT_THAT(errors(),
                ElementsAre("request to " + std::string(platform_protocol::kNmosNodeEndpoint) +
                                ": not connected",
                            "CHK(int WebNotifierHandler::checkIfDeviceIdIsDefined())::# Error Code "
                            "-102",
                            "CHK(int WebNotifierHandler::publishAllDeviceStatus(std::string))::# "
                            "Error Code -102"));
    for (int round = 0; round < 2; ++round) {
        playServices();
        ASSERT_TRUE(waitForSubscriptions());
        ptp->send(kPtpStatus, "{}");
        EXPECT_EQ(consumer.receive()["payload"]["device_id"], "dev");
        session->send(kStatus, R"({"device_id":"dev","id":)" + std::to_string(round) + "}");
        EXPECT_EQ(consumer.receive()["payload"]["id"], round);
        system->send(SysmgrPublisher::sysmgr_dynamic_information_update,
                     round == 0 ? R"({"eths":[{}]})" : "{}");
        EXPECT_EQ(consumer.receive()["command_name"], "status-all");
        session.reset();
        system.reset();
        ptp.reset();
        node.reset();
    }
}

TEST_F(PeersTest, DeviceIdIsAskedForAtEachPublicationWhileItIsEmpty) {
    startAll();
    Consumer consumer(context);
    std::size_t requests = 0;
    // Answers of a node that knows no id: published without one, and asked for again.
    for (const char* answer :
         {R"({"payload":{}})", R"({"payload":{"device":{}}})", R"({"payload":{"device":null}})",
          R"({"result":0,"payload":{"device":{"id":""},"x":[]}})"}) {
        node->answerWith(answer);
        ASSERT_EQ(add(consumer.address()), 0);
        EXPECT_EQ(consumer.receive()["payload"]["device_id"], "");
        EXPECT_EQ(node->requests().size(), ++requests);
    }
    EXPECT_THAT(log(), Contains("INF checkIfDeviceIdIsDefined:: ").Times(4));
    node->answerWith(PlayedNmosNode::deviceAnswer("dev"));
    session->send(kStatus, R"({"id":1,"device_id":""})");
    // The event's own id is published, the document has the node's.
    EXPECT_EQ(consumer.receive()["payload"]["device_id"], "");
    EXPECT_EQ(document()["device_id"], "dev");
    EXPECT_EQ(node->requests().size(), ++requests);
    ptp->send(kPtpStatus, "{}");
    EXPECT_EQ(consumer.receive()["payload"]["device_id"], "dev");
    EXPECT_EQ(node->requests().size(), requests);
    session->send(kStatus, R"({"id":1})");
    EXPECT_EQ(consumer.receive()["payload"]["device_id"], "");
    EXPECT_EQ(node->requests().size(), ++requests);
}

TEST_F(PeersTest, WaitForTheNmosNodeHoldsUpNothingThatWasPublishedBefore) {
    startAll();
    Consumer consumer(context);
    registerAndGreet(consumer);
    node->staySilent();
    session->send(kStatus, R"({"id":1,"device_id":""})");
    ASSERT_TRUE(node->waitForRequests(2));
    // While the service waits, two more notifications come together; the second needs the node.
    session->send(kStatus, R"({"id":2,"device_id":"dev"})");
    session->send(kStatus, R"({"id":3,"device_id":""})");
    zmq_poll(nullptr, 0, 200);
    node->answerRequest(1, PlayedNmosNode::deviceAnswer("dev"));
    EXPECT_EQ(consumer.receive()["payload"]["id"], 1);
    ASSERT_TRUE(node->waitForRequests(3));
    EXPECT_EQ(consumer.receive()["payload"]["id"], 2);
    node->answerRequest(2, PlayedNmosNode::deviceAnswer("dev"));
    EXPECT_EQ(consumer.receive()["payload"]["id"], 3);
}

TEST_F(PeersTest, NonsenseFromTheNmosNodeIsRefusedAndTheNextAnswerTaken) {
    startAll();
    Consumer consumer(context);
    ASSERT_EQ(add("tcp://127.0.0.1:1"), 0);
    struct Row {
        const char* answer;
        int code;
    };
    int failures = 0;
    for (const Row& row :
         {Row{R"({"payload":5})", platform_protocol::kErrorMalformed},
          Row{R"({"payload":{"device":"dev"}})", platform_protocol::kErrorMalformed},
          Row{R"({"payload":{"device":{"id":{}}}})", platform_protocol::kErrorMalformed},
          Row{R"({"result":-5,"payload":{"device":{"id":"refused"}},"error":"e"})", -5}}) {
        session->send(kStatus, R"({"id":1,"device_id":""})");
        node->answerWith(row.answer);
        ptp->send(kPtpStatus, "{}");
        ASSERT_TRUE(service->waitForError("StatusChangeEvent(PtpCommonInfo&)", ++failures));
        EXPECT_EQ(errors().back(), "CHK(virtual int WebNotifierHandler::zatPmcPtpStatusChangeEvent("
                                   "PtpCommonInfo&))::# Error Code " +
                                       std::to_string(row.code));
        EXPECT_EQ(document()["device_id"], "");
    }
    node->answerWith(PlayedNmosNode::deviceAnswer("at last"));
    registerAndGreet(consumer);
    EXPECT_EQ(document()["device_id"], "at last");
}

} // namespace
