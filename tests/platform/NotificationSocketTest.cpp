#include "platform/bundled/NotificationSocket.hpp"

#include "platform/PlatformProtocol.hpp"
#include "tests/support/LogLines.hpp"
#include "tests/support/PlayedServices.hpp"
#include "tests/support/TcpPort.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr unsigned kKnown = 1000;

class NotificationSocketTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(socket.connect(context), 0);
        ASSERT_EQ(socket.subscribe(kKnown), 0);
        ASSERT_EQ(socket.subscribe(kKnown + 1), 0);
        ASSERT_EQ(socket.addTo(pollFds), 0);
        ASSERT_TRUE(service.waitForSubscription(kKnown + 1));
    }

    /// Waits until the socket is ready, then lets it read.
    void receive() {
        ASSERT_EQ(zmq_poll(pollFds.getPollList(), 1, 10'000), 1);
        socket.receive([this](unsigned kind, Json::Value& payload) {
            if (kind != kKnown) {
                return false;
            }
            ids.push_back(payload["id"].asInt());
            return true;
        });
    }

    zmq::context_t context;
    std::string endpoint = freeEndpoint();
    PlayedPublisher service{context, endpoint.c_str()};
    NotificationSocket socket{"some service", endpoint.c_str()};
    PollFds pollFds;
    std::vector<int> ids;
    CapturedLog log;
};

TEST_F(NotificationSocketTest, EachBadNotificationIsDroppedWithOneLineThatSaysWhy) {
    const std::string good = R"({"command_id":1000,"payload":{"id":1}})";
    struct Row {
        std::vector<std::string> frames;
        const char* line;
    };
    const std::vector<Row> rows = {
        {{"1000"}, "notification 1000 dropped: it does not have two frames"},
        {{"1000", good, ""}, "notification 1000 dropped: it does not have two frames"},
        {{"1000", good, good, good}, "notification 1000 dropped: it does not have two frames"},
        {{"1000x", good}, "notification 1000x dropped: its kind is not a number"},
        {{"1000\n\x01\xff", good}, "notification 1000.n.x01. dropped: its kind is not a number"},
        {{"1000" + std::string(1000, '0'), good},
         "notification 10000* dropped: its kind is not a number"},
        {{"1000", ""}, "notification 1000 dropped: not JSON: .*"},
        {{"1000", good.substr(0, 30)}, "notification 1000 dropped: not JSON: .*"},
        {{"1000", std::string("\0\1\2", 3)}, "notification 1000 dropped: not JSON: .*"},
        {{"1000", "[]"}, "notification 1000 dropped: not a JSON object"},
        {{"1000", std::string(platform_protocol::kMaxFrameBytes + 1, ' ')},
         "notification 1000 dropped: longer than 1048576 bytes"},
        {{"1000", R"({"a":)" + std::string(100'000, '[')},
         "notification 1000 dropped: nested deeper than 64 levels"},
        {{"1000", R"({"payload":{}})"}, "notification 1000 dropped: .command_id. is missing"},
        {{"1000", R"({"command_id":1001,"payload":{}})"},
         "notification 1000 dropped: its command_id is 1001"},
        {{"1000", R"({"command_id":1000,"payload":[]})"},
         "notification 1000 dropped: its payload is not an object"},
        {{"1000", R"({"command_id":1000})"},
         "notification 1000 dropped: its payload is not an object"},
        {{"1000", R"({"command_id":1000,"payload":{"id":{}}})"}, "notification 1000 dropped: .*"},
    };
    for (const Row& row : rows) {
        service.sendFrames(row.frames);
        receive();
        EXPECT_THAT(log.lines(),
                    ElementsAre(MatchesRegex(std::string("ERR some service: ") + row.line)));
    }
    EXPECT_THAT(ids, IsEmpty());
    service.sendFrames({"1000", good});
    receive();
    EXPECT_THAT(ids, ElementsAre(1));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(NotificationSocketTest, FailureOfTheReceiverIsToldFromAMessageThatIsDropped) {
    service.send(kKnown, "{}");
    ASSERT_EQ(zmq_poll(pollFds.getPollList(), 1, 10'000), 1);
    socket.receive([](unsigned, Json::Value&) -> bool { throw std::bad_alloc(); });
    EXPECT_THAT(log.lines(), ElementsAre("ERR some service: notification 1000 not carried through: "
                                         "std::bad_alloc"));
}

TEST_F(NotificationSocketTest, FloodIsReadInOrderAndInTurns) {
    constexpr int kCount = 100;
    for (int id = 0; id < kCount; ++id) {
        service.send(kKnown, R"({"id":)" + std::to_string(id) + "}");
    }
    int turns = 0;
    while (ids.size() < kCount) {
        receive();
        ++turns;
    }
    EXPECT_GT(turns, 1);
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
    // Nothing there: it comes back at once.
    socket.receive([](unsigned, Json::Value&) { return false; });
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(NotificationSocketTest, FailuresToSetUpGiveTheirCodes) {
    NotificationSocket unconnected("other", "nonsense");
    EXPECT_EQ(unconnected.subscribe(kKnown), platform_protocol::kErrorSocket);
    EXPECT_EQ(unconnected.addTo(pollFds), platform_protocol::kErrorPollSetFull);
    EXPECT_EQ(unconnected.connect(context), platform_protocol::kErrorSocket);
    EXPECT_THAT(log.lines(), ElementsAre("ERR other: Error connecting to nonsense. Error "
                                         "[22]::Invalid argument"));
    EXPECT_FALSE(unconnected.owns(pollFds.getPollList()[0]));
    EXPECT_TRUE(socket.owns(pollFds.getPollList()[0]));
}

} // namespace
