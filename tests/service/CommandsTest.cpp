#include "platform/api/ResultCode.hpp"
#include "platform/records/JsonText.hpp"
#include "tests/support/ServiceTest.hpp"

namespace {

using testing::Contains;
using testing::ElementsAre;

class CommandsTest : public ServiceTest {
protected:
    void SetUp() override { startAll(); }

    std::string listed() { return toCompactJson(list()); }
};

TEST_F(CommandsTest, ConsumerIsAddedGreetedListedAndRemoved) {
    Consumer consumer(context);
    EXPECT_EQ(listed(), "{}");
    const std::string request =
        R"({"command_id":1,"payload":{"address":")" + consumer.address() + "\"}}";
    const std::string reply =
        R"({"command_id":1,"command_name":"Add remote info consumer","payload":{},"result":0})";
    // A second time it is no error: one connection, the whole status once more.
    EXPECT_EQ(client.exchange(request), reply);
    EXPECT_EQ(client.exchange(request), reply);
    EXPECT_EQ(listed(), R"({"remote":[")" + consumer.address() + "\"]}");
    const auto greeting = consumer.receiveText();
    ASSERT_TRUE(greeting);
    EXPECT_EQ(consumer.receiveText(), greeting);
    EXPECT_EQ(*greeting, R"({"command_id":0,"command_name":"status-all","payload":)" +
                             toCompactJson(document()) + "}");

    const std::string published = "INF Publishing message to socket (" + consumer.address() +
                                  ") size " + std::to_string(greeting->size());
    const auto lines = log();
    ASSERT_GE(lines.size(), 8U);
    // After the first request, which found out that the service is there, and the first list.
    const auto first = std::find(lines.begin(), lines.end(),
                                 "INF checkIfDeviceIdIsDefined:: device id is not defined. asking "
                                 "for it.");
    EXPECT_THAT(std::vector<std::string>(first, first + 7),
                ElementsAre("INF checkIfDeviceIdIsDefined:: device id is not defined. asking for "
                            "it.",
                            "INF checkIfDeviceIdIsDefined:: dev", published,
                            "DBG command 1 (Add remote info consumer) carried out",
                            "DBG WebNotifierServer: something received",
                            "ERR WebnotifierPublisher: we already have a connection to this remote "
                            "server " +
                                consumer.address() + ". ignoring it.",
                            published));

    EXPECT_EQ(remove(consumer.address() + "0"), 0);
    EXPECT_EQ(remove(consumer.address()), 0);
    EXPECT_EQ(remove(consumer.address()), 0);
    EXPECT_EQ(listed(), "{}");
    EXPECT_THAT(
        log(),
        Contains("WRN WebnotifierPublisher: destroying socket to " + consumer.address()).Times(1));
}

TEST_F(CommandsTest, BadRequestGetsOneReplyAndChangesNothing) {
    session->send(AvmgrPublisher::avmgr_session_status, R"({"id":1,"device_id":"dev"})");
    ASSERT_TRUE(service->waitForError("session 1 - NMOS"));
    const Json::Value before = document();
    struct Row {
        const char* body;
        int result;
    };
    for (const Row& row : {
             Row{"", platform_protocol::kErrorMalformed},
             Row{R"({"command_id":1,"payload":{"address":{}}})",
                 platform_protocol::kErrorMalformed},
             Row{R"({"command_id":2,"payload":["address"]})", platform_protocol::kErrorMalformed},
             Row{R"({"command_id":1})", result_code::kConsumerNotConnected},
             Row{R"({"command_id":1,"payload":{"address":"nonsense"}})",
                 result_code::kConsumerNotConnected},
             Row{R"({"command_id":1,"payload":{"address":12}})",
                 result_code::kConsumerNotConnected},
             Row{R"({"command_id":4})", result_code::kUnknownId},
             Row{R"({"command_id":4294967295,"payload":[[[]]]})", result_code::kUnknownId},
         }) {
        const auto text = client.exchange(row.body);
        ASSERT_TRUE(text) << row.body;
        const Json::Value reply = parseJson(*text);
        EXPECT_EQ(reply["result"], row.result) << *text;
        EXPECT_FALSE(reply["error"].asString().empty());
    }
    EXPECT_EQ(document(), before);
    EXPECT_EQ(listed(), "{}");
    EXPECT_THAT(errors(),
                Contains("CHK(virtual int WebNotifierHandler::ipcProcessMsg(IpcMsg&, Json::Value&, "
                         "bool&))::# Error Code -33"));
}

TEST_F(CommandsTest, ManyRequestsOfADealerAreAnsweredOneByOneInOrder) {
    zmq::socket_t dealer(context, zmq::socket_type::dealer);
    dealer.set(zmq::sockopt::linger, 0);
    dealer.set(zmq::sockopt::rcvtimeo, 10'000);
    dealer.connect(platform_protocol::kCommandEndpoint);
    constexpr int kRequests = 500;
    for (int i = 0; i < kRequests; ++i) {
        dealer.send(zmq::message_t(), zmq::send_flags::sndmore);
        if (i % 5 == 4) {
            // Several frames: one request all the same.
            dealer.send(zmq::str_buffer("{}"), zmq::send_flags::sndmore);
        }
        dealer.send(zmq::buffer(R"({"command_id":)" + std::to_string(i % 5) + "}"),
                    zmq::send_flags::none);
    }
    for (int i = 0; i < kRequests; ++i) {
        zmq::message_t delimiter;
        zmq::message_t reply;
        ASSERT_TRUE(dealer.recv(delimiter));
        ASSERT_TRUE(dealer.recv(reply));
        EXPECT_FALSE(reply.more());
        const unsigned id = parseJson(reply.to_string())["command_id"].asUInt();
        EXPECT_EQ(id, i % 5 == 4 ? 0U : static_cast<unsigned>(i % 5));
    }
    list();
    dealer.set(zmq::sockopt::rcvtimeo, 0);
    zmq::message_t surplus;
    EXPECT_FALSE(dealer.recv(surplus));
}

} // namespace
