#include "platform/api/ResultCode.hpp"
#include "tests/support/ServiceTest.hpp"
#include "tests/support/TcpPort.hpp"

#include <csignal>

namespace {

using testing::Contains;
using testing::ElementsAre;

class StopTest : public ServiceTest {
protected:
    /// Makes each "status-all" this large.
    void growTheDocument(std::size_t bytes) {
        session->send(AvmgrPublisher::avmgr_session_status,
                      R"({"id":1,"device_id":"dev","nmos_id":")" + std::string(bytes, 'n') + "\"}");
        ASSERT_TRUE(service->waitForError("avmgrNotifyUpdateSessionStatusEvent"));
    }

    static constexpr const char* kWaits = "is full, waiting for it to be read";

    void publish(int times) {
        for (int i = 0; i < times; ++i) {
            ptp->send(ZatPmcPublisher::zat_pmc_status_change, "{}");
        }
    }
};

TEST_F(StopTest, EachTerminationSignalEndsItWithStatusZeroAndTheseLines) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        startService();
        EXPECT_EQ(stop(signal), 0);
        const auto lines = log();
        EXPECT_THAT(std::vector<std::string>(lines.end() - 2, lines.end()),
                    ElementsAre("WRN WebNotifierServer:: Main loop interrupted.",
                                "INF Destroying 0 active connections"));
    }
}

TEST_F(StopTest, HangUpIsIgnoredWhenTheStarterWantsThat) {
    service.emplace(std::vector<std::string>{"/bin/sh", "-c", R"(trap "" HUP; exec "$0")",
                                             builtProgram("kaikla")});
    list();
    service->signal(SIGHUP);
    // A request that comes together with a stop still has its reply; the next one has none.
    list();
    list();
    EXPECT_EQ(stop(SIGTERM), 0);
}

TEST_F(StopTest, StormOfSignalsChangesNothing) {
    startAll();
    Consumer consumer(context);
    registerAndGreet(consumer);
    const auto start = std::chrono::steady_clock::now();
    while (!service->waitForExit(std::chrono::milliseconds(5))) {
        for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) {
            service->signal(signal);
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(service->waitForExit(), 0);
}

TEST_F(StopTest, PendingRequestToTheNmosNodeDoesNotHoldItUp) {
    startAll();
    node->staySilent();
    ptp->send(ZatPmcPublisher::zat_pmc_status_change, "{}");
    ASSERT_TRUE(node->waitForRequests(1));
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_THAT(log(), Contains("WRN WebNotifierServer:: Main loop interrupted."));
}

TEST_F(StopTest, StalledConsumersDoNotHoldItUpAndWhatIsQueuedForALiveOneLeaves) {
    startAll();
    constexpr std::size_t kLarge = 20'000;
    growTheDocument(kLarge);
    // It takes little at a time, so that most of what it is sent is queued in the service.
    zmq::socket_t live(context, zmq::socket_type::pull);
    live.set(zmq::sockopt::rcvhwm, 1);
    live.set(zmq::sockopt::rcvtimeo, 1500);
    live.bind("tcp://127.0.0.1:*");
    const std::string address = live.get(zmq::sockopt::last_endpoint);
    const std::vector<std::string> absent = {freeEndpoint(), freeEndpoint(), freeEndpoint()};
    for (const std::string& stalled : absent) {
        ASSERT_EQ(add(stalled), 0);
    }
    // Their queues take this many messages of the library's defaults; the live one's is never full.
    constexpr int kQueue = 1000;
    constexpr int kHeadStart = 100;
    publish(kHeadStart);
    ASSERT_TRUE(service->waitForError("PTP changed", kHeadStart));
    ASSERT_EQ(add(address), 0);
    publish(kQueue);
    ASSERT_TRUE(service->waitForError(kWaits));

    int received = 0;
    std::thread reading([&] {
        for (zmq::message_t message; live.recv(message);) {
            EXPECT_GT(message.size(), kLarge);
            ++received;
        }
    });
    EXPECT_EQ(stop(SIGTERM), 0);
    reading.join();
    const std::string text = service->error();
    EXPECT_EQ(received, countOf(text, "Publishing message to socket (" + address + ")"));
    for (const std::string& stalled : absent) {
        // Whatever found no room any more is owned up to.
        const int refused = countOf(text, "to socket " + stalled + " interrupted\n");
        EXPECT_GE(refused, 1);
        EXPECT_EQ(countOf(text, "Publishing message to socket (" + stalled + ")"),
                  kQueue + refused);
    }
    EXPECT_EQ(countOf(text, "WebNotifierServer:: Main loop interrupted.\n"), 1);
    EXPECT_TRUE(text.ends_with("Destroying 4 active connections\n"));
}

TEST_F(StopTest, TakenPortEndsASecondInstanceAndLeavesTheFirstAlone) {
    startService();
    const auto start = std::chrono::steady_clock::now();
    const Outcome second = run({"kaikla", "-l", "7"});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(second.status, 221);
    EXPECT_THAT(logLines(second.error),
                ElementsAre("ERR WebnotifierHandler: Error binding on socket " +
                                std::string(platform_protocol::kCommandBindEndpoint) +
                                ". Error [98]::Address already in use",
                            "ERR CHK(int WebNotifierServer::init())::# Error Code -35",
                            "ERR CHK(int main(int, char**))::# Error Code -35",
                            "INF Destroying 0 active connections"));
    list();
    EXPECT_EQ(stop(SIGINT), 0);
}

TEST_F(StopTest, ReplyIsSentBeforeTheEnd) {
    startService();
    zmq::socket_t requester(context, zmq::socket_type::req);
    requester.set(zmq::sockopt::linger, 0);
    requester.set(zmq::sockopt::rcvtimeo, 2000);
    requester.connect(platform_protocol::kCommandEndpoint);
    requester.send(zmq::str_buffer(R"({"command_id":4})"), zmq::send_flags::none);
    ASSERT_TRUE(service->waitForError("is not recognized."));
    EXPECT_EQ(stop(SIGTERM), 0);
    zmq::message_t reply;
    EXPECT_TRUE(requester.recv(reply));
}

} // namespace
